// SPDX-License-Identifier: MIT
// Descriptors kept back for the moment when the process has no others left.
#ifndef KEX_SPARE_H
#define KEX_SPARE_H

#include "bus.h"

namespace bus {

// Takes what is missing. False: the process's table is full.
bool spare_fill(kex_t *bus);
void spare_release(kex_t *bus);
// Whether a packet with the largest number of descriptors might not find room in the process's table. Looks at the
// table now and then only, as long as there is plenty of room in it.
bool descriptors_are_short(kex_t *bus);

} // namespace bus

#endif

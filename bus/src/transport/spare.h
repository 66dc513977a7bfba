// SPDX-License-Identifier: MIT
// Descriptors kept back for the moment when the process has no others left.
#ifndef KEX_SPARE_H
#define KEX_SPARE_H

#include "bus/bus.h"

namespace bus {

// Takes what is missing. False: the process's table is full.
bool spare_fill(kex_t *bus);
void spare_release(kex_t *bus);
// For how many descriptors the process's table has room without the spare ones. Looks at the table now and then only,
// as long as there is room for whatever one system call can bring.
uint32_t descriptors_room(kex_t *bus);
// So many have come since.
void descriptors_came(kex_t *bus, uint32_t count);
constexpr uint32_t kPlentyOfDescriptors = kMaxDescriptors * kPacketsPerRead;

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// Waits for a reply, made visible on both sides.
#ifndef KEX_WAIT_H
#define KEX_WAIT_H

#include "transport/connection.h"

namespace bus {

// The other side says that it waits for our reply to its call of this serial.
void wait_announced(Link *link, uint32_t serial);

} // namespace bus

#endif

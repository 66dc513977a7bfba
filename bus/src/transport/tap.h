// SPDX-License-Identifier: MIT
// Copies of all traffic for whoever taps this bus.
#ifndef KEX_TAP_SIDE_H
#define KEX_TAP_SIDE_H

#include "transport/connection.h"

namespace bus {

enum class TapDirection : uint8_t { sent, received };

// A connection becomes a tap, which is told that copies begin. A sentence when it may not, else null.
const char *tap_admit(Connection *connection);
// Both cost a comparison while nobody taps.
void tap_message(const Connection *connection, TapDirection direction, const uint8_t *data, uint32_t size);
void tap_event(const Connection *connection, kex_tap_kind kind, const char *text);

} // namespace bus

#endif

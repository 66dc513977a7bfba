// SPDX-License-Identifier: MIT
// Copies of all traffic for whoever taps this bus.
#ifndef KEX_TAP_SIDE_H
#define KEX_TAP_SIDE_H

#include "transport/connection.h"

namespace bus {

enum class TapDirection : uint8_t { sent, received };

// Tells a new tap that copies begin: its client has connected long before the listener knows of it.
void tap_begin(Connection *tap);
// Both cost a comparison while nobody taps.
void tap_packet(const Connection *connection, TapDirection direction, const uint8_t *packet, uint32_t size);
void tap_event(const Connection *connection, kex_tap_kind kind, const char *text);

} // namespace bus

#endif

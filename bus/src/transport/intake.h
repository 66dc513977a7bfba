// SPDX-License-Identifier: MIT
// What is done with a packet that has come: all of it is validated before any of it is handed on.
#ifndef KEX_INTAKE_H
#define KEX_INTAKE_H

#include "transport/arrival.h"
#include "transport/connection.h"

namespace bus {

// Hands its messages on, or refuses the peer; descriptors that nobody took are closed.
void arrival_take(Connection *connection, Arrival &arrival);
// Nothing comes any more: closes the connection, with the reason that the peer gave for refusing us, if it gave one.
void connection_end(Connection *connection, const char *why);

} // namespace bus

#endif

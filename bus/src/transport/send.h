// SPDX-License-Identifier: MIT
// How what is queued for a connection leaves.
#ifndef KEX_SEND_H
#define KEX_SEND_H

#include "transport/connection.h"

namespace bus {

void connection_flush(Connection *connection);
// Within a turn, so that what a peer is sent does not pile up until its end.
void connection_flush_if_much(Connection *connection);
// All connections, those to taps last: what has just been sent is copied to them.
void connections_flush(Transport *transport);
// The same until nothing is queued, for at most this long.
void connections_drain(Transport *transport, uint64_t nanoseconds);

} // namespace bus

#endif

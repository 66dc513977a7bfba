// SPDX-License-Identifier: MIT
// What arrives on connections.
#ifndef KEX_RECEIVE_H
#define KEX_RECEIVE_H

#include "transport/connection.h"

namespace bus {

// Whether a read may take descriptors while calls that hold some wait to be run and the process's table is full. Only
// somebody who waits for a reply reads on then: nothing runs before the wait ends.
enum class Reading : uint8_t { may_hold_back, reads_on };

// Reads what one system call brings, at most so many packets (a power of two up to kPacketsPerRead). False: nothing
// more is to be read now, or the connection is closed.
bool connection_receive(Connection *connection, uint32_t packets, Reading reading);
// The same of one packet, reading on, after sleeping for kSleepInReceive at most until it comes. False besides: a
// signal has come.
bool connection_await(Connection *connection);
// Whether that is possible now: it would take in whatever the packet brings.
bool connection_may_await(Connection *connection);
// Those that are ready, in turn, as far as a turn's time for reading goes.
void connections_read(Transport *transport);

} // namespace bus

#endif

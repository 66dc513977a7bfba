// SPDX-License-Identifier: MIT
// Who ended first is finished first. A process that dies and connects again must find the end of its old connection
// handled: nothing of a newcomer runs before the queued calls and the close event of every connection that ended before
// it came. It is taken in at once all the same, and read.
#ifndef KEX_SUCCESSION_H
#define KEX_SUCCESSION_H

#include "transport/connection.h"

namespace bus {

// The connection has ended.
void end_note(Connection *connection);
// The connections of a process that have ended and are not finished.
struct Leavings {
    uint32_t much;    // of them: with much left
    uint32_t nothing; // with nothing left but their end
};
Leavings leavings_of_process(Transport *transport, int32_t process_id);
// Those with a higher number than this have just been accepted.
void newcomers_line_up(Transport *transport, uint64_t last_known);
// A connection has gone, or the bus ends: whoever waits for nothing more may run.
void newcomers_release(Transport *transport);

} // namespace bus

#endif

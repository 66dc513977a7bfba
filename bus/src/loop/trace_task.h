// SPDX-License-Identifier: MIT
// The loop's share of the trace service: what could not be written is tried again, what was counted is told.
#ifndef KEX_TRACE_TASK_H
#define KEX_TRACE_TASK_H

namespace bus {

struct Loop;

// It takes part in the loop's turns.
void trace_join(Loop *loop);

} // namespace bus

#endif

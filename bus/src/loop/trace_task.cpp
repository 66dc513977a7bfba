// SPDX-License-Identifier: MIT
// Implements trace_task.h.
#include "loop/trace_task.h"
#include "base/trace.h"
#include "loop/loop.h"

namespace bus {

namespace {

// What is due by the kernel's clock, by the loop's.
uint64_t trace_task_deadline(void *self) {
    const Loop *loop = static_cast<Loop *>(self);
    if (!trace_has_rest())
        return kNever;
    const uint64_t now = clock_monotonic();
    const uint64_t due = trace_deadline(now);
    return clock_now(loop->clock) + (due > now ? due - now : 0);
}

void trace_task_send(void *) {
    if (trace_has_rest())
        trace_catch_up();
}

const Module kTrace = {.deadline = trace_task_deadline, .send = trace_task_send};

} // namespace

void trace_join(Loop *loop) {
    loop_join(loop, kTrace, loop);
}

} // namespace bus

// SPDX-License-Identifier: MIT
// The loop's share of the trace service: what could not be written is tried again, what was counted is told.
#ifndef KEX_TRACE_TASK_H
#define KEX_TRACE_TASK_H

#include "loop/module.h"

namespace bus {

struct Loop;

// The module's functions are filled in, and it takes part in the loop's turns.
void trace_join(Loop *loop, Module *module);

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// What stands in the loop's queue: calls, replies, timers, watched descriptors and close events, in the order they came.
#ifndef KEX_TASK_H
#define KEX_TASK_H

#include "base/list.h"

namespace bus {

struct Task : Node<Task> {
    void (*run)(Task *task);
    void (*drop)(Task *task); // the bus goes away before the task's turn; null: nothing to do
};

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// What stands in a lane of the loop: calls, replies, timers, watched descriptors and close events.
#ifndef KEX_TASK_H
#define KEX_TASK_H

#include "base/list.h"

namespace bus {

struct Lane;

struct Task : Node<Task> {
    Lane *lane; // in which it stands; null: in none
    void (*run)(Task *task);
    void (*drop)(Task *task); // the bus goes away before the task's turn; null: nothing to do
};

} // namespace bus

#endif

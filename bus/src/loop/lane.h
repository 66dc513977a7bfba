// SPDX-License-Identifier: MIT
// The tasks of one origin (a connection; the host's own timers and watches), in the order they came. The loop visits
// the lanes that have tasks one after the other, so that nobody stands behind all that another one has queued.
#ifndef KEX_LANE_H
#define KEX_LANE_H

#include "loop/task.h"

namespace bus {

struct Loop;

constexpr uint32_t kWholeLane = UINT32_MAX;

// Stands in the loop's list while it has tasks and is not held.
struct Lane : Node<Lane> {
    Loop *loop;
    List<Task> tasks;
    uint32_t share;      // tasks that run at a visit, as long as it is no longer than kVisit; kWholeLane: all
    uint32_t ran;        // in this visit
    uint64_t visited_at; // since when, by the kernel's clock
    bool held;           // its tasks wait, whatever the loop does
};

void lane_begin(Lane *lane, Loop *loop, uint32_t share);
// Queues a task, from anywhere.
void lane_push(Lane *lane, Task *task);
void lane_hold(Lane *lane);
void lane_release(Lane *lane);
// Takes a task out of the lane it stands in. Harmless for one that stands in none.
void task_remove(Task *task);

// Runs what stands in the lanes now, for so many nanoseconds by the kernel's clock, and at least one task. How many
// ran.
uint32_t tasks_run(Loop *loop, uint64_t nanoseconds);
// Takes all tasks out without running them. Held lanes have to be released before.
void tasks_drop(Loop *loop);
// The loop whose tasks run now; null: none.
Loop *loop_dispatching();

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// Implements lane.h.
#include "loop/lane.h"
#include "base/limits.h"
#include "loop/loop.h"

namespace bus {

namespace {

Loop *dispatching;

void lane_show(Lane *lane) {
    if (lane->held || lane->tasks.first == nullptr || List<Lane>::holds(lane))
        return;
    lane->ran = 0;
    lane->loop->lanes.push(lane);
    loop_wake(lane->loop);
}

// The lane that is visited now. One that may run several tasks at a visit has its time for them.
Lane *lane_next(Loop *loop, uint64_t now) {
    Lane *lane = loop->lanes.first;
    if (lane == nullptr || lane->share == kWholeLane)
        return lane;
    if (lane->ran == 0) {
        lane->visited_at = now;
    } else if (now - lane->visited_at >= kVisit) {
        lane->ran = 0;
        loop->lanes.remove(lane);
        loop->lanes.push(lane);
        lane = loop->lanes.first;
        lane->visited_at = now;
    }
    return lane;
}

// Out of the loop's list first: a task may end its own lane.
Task *task_take(Lane *lane) {
    Task *task = lane->tasks.pop();
    task->lane = nullptr;
    List<Lane> &lanes = lane->loop->lanes;
    if (lane->tasks.first == nullptr) {
        lanes.remove(lane);
    } else if (++lane->ran >= lane->share) {
        lanes.remove(lane);
        lane->ran = 0;
        lanes.push(lane);
    }
    return task;
}

// The host's own tasks run one behind the other. When they have taken all the time of a turn, peers come before the rest.
void own_lane_put_off(Loop *loop) {
    if (loop->lanes.first != &loop->own)
        return;
    loop->lanes.remove(&loop->own);
    loop->lanes.push(&loop->own);
}

uint32_t tasks_count(const Loop *loop) {
    uint32_t count = 0;
    for (const Lane *lane : loop->lanes)
        count += lane->tasks.count;
    return count;
}

} // namespace

void lane_begin(Lane *lane, Loop *loop, uint32_t share) {
    lane->loop = loop;
    lane->share = share;
}

void lane_push(Lane *lane, Task *task) {
    lane->tasks.push(task);
    task->lane = lane;
    lane_show(lane);
}

void lane_hold(Lane *lane) {
    lane->held = true;
    lane->loop->lanes.remove(lane);
}

void lane_release(Lane *lane) {
    lane->held = false;
    lane_show(lane);
}

void task_remove(Task *task) {
    Lane *lane = task->lane;
    if (lane == nullptr)
        return;
    lane->tasks.remove(task);
    task->lane = nullptr;
    if (lane->tasks.first == nullptr)
        lane->loop->lanes.remove(lane);
}

uint32_t tasks_run(Loop *loop, uint64_t nanoseconds) {
    uint32_t ran = 0;
    Loop *before = dispatching; // a handler may take a turn of another bus
    dispatching = loop;
    // Only as many as stand in the queue now: what the handlers add waits for the next turn, so that reading goes on.
    const uint64_t end = loop->looked_at + nanoseconds;
    bool own_only = true; // what has run
    for (uint32_t left = tasks_count(loop); left > 0 && loop->stopped == 0; left--) {
        const uint64_t before_it = loop->looked_at;
        Lane *lane = lane_next(loop, before_it);
        if (lane == nullptr)
            break;
        own_only = own_only && lane == &loop->own;
        Task *task = task_take(lane);
        ran++;
        task->run(task);
        if (loop->looked_at == before_it) // else the task has ended with a look
            loop_look(loop);
        if (loop->looked_at < end)
            continue;
        if (own_only)
            own_lane_put_off(loop);
        break;
    }
    dispatching = before;
    return ran;
}

void tasks_drop(Loop *loop) {
    Loop *before = dispatching;
    dispatching = loop;
    while (Lane *lane = loop->lanes.first) {
        Task *task = task_take(lane);
        if (task->drop != nullptr)
            task->drop(task);
    }
    dispatching = before;
}

Loop *loop_dispatching() {
    return dispatching;
}

} // namespace bus

// SPDX-License-Identifier: MIT
// Implements timer.h and the timers of kex.h, by absolute times on the loop's clock.
#include "loop/timer.h"

#include <initializer_list>

using namespace bus;

struct kex_timer : Task, Node<kex_timer> {
    Loop *loop;
    bool running; // stands among the running timers of its loop, else among the idle ones
    uint64_t deadline;
    void (*handler)(kex_timer_t *timer);
};

namespace {

// The handler may start or destroy the timer: nothing of it is touched afterwards.
void timer_run(Task *task) {
    kex_timer_t *timer = static_cast<kex_timer_t *>(task);
    if (timer->handler != nullptr)
        timer->handler(timer);
}

void timer_stop(kex_timer_t *timer) {
    Timers &timers = timer->loop->timers;
    if (timer->running) {
        timers.running.remove(timer);
        timers.idle.push(timer);
        timer->running = false;
    }
    task_remove(timer);
}

kex_timer_t *spare_take(Timers &timers) {
    kex_timer_t *spare = timers.spare;
    timers.spare = nullptr;
    return spare;
}

// Null: there is no memory, not even that of the spare one.
kex_timer_t *timer_take(Timers &timers) {
    if (timers.spare == nullptr)
        return make<kex_timer_t>();
    const OptionalMemory other;
    kex_timer_t *timer = make<kex_timer_t>();
    return timer != nullptr ? timer : spare_take(timers);
}

// The memory of a timer that has gone becomes the spare one when there is none.
void timer_release(Timers &timers, kex_timer_t *timer) {
    *timer = {};
    if (timers.spare == nullptr)
        timers.spare = timer;
    else
        free(timer);
}

uint64_t timers_deadline(void *self) {
    const kex_timer_t *soonest = static_cast<Loop *>(self)->timers.running.first;
    return soonest != nullptr ? soonest->deadline : kNever;
}

void timers_expire(void *self, uint64_t now) {
    Loop *loop = static_cast<Loop *>(self);
    List<kex_timer_t> &running = loop->timers.running;
    while (running.first != nullptr && running.first->deadline <= now) {
        kex_timer_t *timer = running.first;
        timer_stop(timer);
        lane_push(&loop->own, timer);
    }
}

const Module kTimers = {.deadline = timers_deadline, .expire = timers_expire};

} // namespace

namespace bus {

void timers_begin(Loop *loop, uint32_t time_factor) {
    loop->timers.time_factor = time_factor;
    loop->timers.spare = make<kex_timer_t>();
    loop_join(loop, kTimers, loop);
}

void timers_end(Loop *loop) {
    for (List<kex_timer_t> *list : {&loop->timers.running, &loop->timers.idle}) {
        while (list->first != nullptr) {
            task_remove(list->first);
            free(list->pop());
        }
    }
    free(loop->timers.spare);
}

kex_timer_t *timer_create(Loop *loop) {
    kex_timer_t *timer = timer_take(loop->timers);
    if (timer == nullptr)
        return nullptr;
    timer->run = timer_run;
    timer->loop = loop;
    loop->timers.idle.push(timer);
    return timer;
}

} // namespace bus

void kex_timer_setHandler(kex_timer_t *timer, void (*handler)(kex_timer_t *timer)) {
    if (timer != nullptr)
        timer->handler = handler;
}

int kex_timer_start(kex_timer_t *timer, uint32_t milliseconds) {
    if (timer == nullptr)
        return 0;
    Loop *loop = timer->loop;
    Timers &timers = loop->timers;
    timer_stop(timer);
    timer->deadline = clock_now(loop->clock) + milliseconds * kMillisecond / timers.time_factor;
    if (timer->deadline == kNever) // a host's own clock may begin at zero
        timer->deadline++;
    // Behind those of the same time: equal timers fire in the order they were started.
    kex_timer_t *later = timers.running.first;
    while (later != nullptr && later->deadline <= timer->deadline)
        later = List<kex_timer_t>::after(later);
    timers.idle.remove(timer);
    timers.running.insert_before(later, timer);
    timer->running = true;
    loop_wake(loop);
    return 1;
}

void kex_timer_destroy(kex_timer_t *timer) {
    if (timer == nullptr)
        return;
    timer_stop(timer);
    Timers &timers = timer->loop->timers;
    timers.idle.remove(timer);
    timer_release(timers, timer);
}

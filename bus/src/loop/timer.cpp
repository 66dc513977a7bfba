// SPDX-License-Identifier: MIT
// One-shot timers (kex.h, "Peers, timers, data model"), by absolute times on the bus's clock.
#include "loop/timer.h"
#include "loop/loop.h"

#include <initializer_list>

using namespace bus;

namespace {

// The handler may start or destroy the timer: nothing of it is touched afterwards.
void run(Task *task) {
    kex_timer_t *timer = static_cast<kex_timer_t *>(task);
    if (timer->handler != nullptr)
        timer->handler(timer);
}

void drop(Task *) {}

void put_to_rest(kex_timer_t *timer) {
    if (timer->running) {
        timer->bus->timers.remove(timer);
        timer->bus->idle_timers.push(timer);
        timer->running = false;
    }
    timer->bus->tasks.remove(timer);
}

} // namespace

namespace bus {

uint64_t timers_deadline(kex_t *bus) {
    return bus->timers.first != nullptr ? bus->timers.first->deadline : 0;
}

void timers_expire(kex_t *bus) {
    if (bus->timers.first == nullptr)
        return;
    uint64_t now = clock_now(bus->clock);
    while (bus->timers.first != nullptr && bus->timers.first->deadline <= now) {
        kex_timer_t *timer = bus->timers.first;
        put_to_rest(timer);
        loop_push(bus, timer);
    }
}

void timers_free(kex_t *bus) {
    for (List<kex_timer_t> *list : {&bus->timers, &bus->idle_timers}) {
        while (list->first != nullptr) {
            bus->tasks.remove(list->first);
            free(list->pop());
        }
    }
}

} // namespace bus

kex_timer_t *kex_timer_create(void) {
    kex_t *bus = current_bus();
    kex_timer_t *timer = bus != nullptr ? make<kex_timer_t>() : nullptr;
    if (timer == nullptr)
        return nullptr;
    timer->Task::run = run;
    timer->drop = drop;
    timer->bus = bus;
    bus->idle_timers.push(timer);
    return timer;
}

void kex_timer_setHandler(kex_timer_t *timer, void (*handler)(kex_timer_t *timer)) {
    if (timer != nullptr)
        timer->handler = handler;
}

int kex_timer_start(kex_timer_t *timer, uint32_t milliseconds) {
    if (timer == nullptr)
        return 0;
    kex_t *bus = timer->bus;
    put_to_rest(timer);
    timer->deadline = clock_now(bus->clock) + milliseconds * kMillisecond / bus->environment.time_factor;
    // Behind those of the same time: equal timers fire in the order they were started.
    kex_timer_t *later = bus->timers.first;
    while (later != nullptr && later->deadline <= timer->deadline)
        later = List<kex_timer_t>::after(later);
    bus->idle_timers.remove(timer);
    bus->timers.insert_before(later, timer);
    timer->running = true;
    loop_wake(bus);
    return 1;
}

void kex_timer_destroy(kex_timer_t *timer) {
    if (timer == nullptr)
        return;
    put_to_rest(timer);
    timer->bus->idle_timers.remove(timer);
    free(timer);
}

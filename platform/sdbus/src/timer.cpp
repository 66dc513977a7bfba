// SPDX-License-Identifier: MIT
// Timers. The contract gives them no bus: they are those of the bus that runs, else of the process's first one.
#include "bus.h"

#include <algorithm>
#include <time.h>

struct kex_timer {
    kex_t *bus;
    void (*handler)(kex_timer_t *timer);
    uint64_t deadline; // UINT64_MAX: it does not run
};

namespace sdbus {

namespace {

std::vector<kex_timer_t *> timers;

uint64_t time_of(const kex_t *bus) {
    return bus->clock != nullptr ? bus->clock(bus->clock_userdata) : now();
}

} // namespace

uint64_t now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

uint64_t timers_deadline(const kex_t *bus) {
    uint64_t next = UINT64_MAX;
    for (const kex_timer_t *timer : timers)
        next = timer->bus == bus ? std::min(next, timer->deadline) : next;
    return next;
}

// Those that are due when it begins, in the order of their times.
int timers_run(kex_t *bus) {
    const uint64_t time = time_of(bus);
    std::vector<std::pair<uint64_t, kex_timer_t *>> due;
    for (kex_timer_t *timer : timers) {
        if (timer->bus == bus && timer->deadline <= time)
            due.emplace_back(timer->deadline, timer);
    }
    std::stable_sort(due.begin(), due.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    for (const auto &[deadline, timer] : due) {
        const bool is_there = std::count(timers.begin(), timers.end(), timer) > 0;
        if (!is_there || timer->deadline != deadline)
            continue; // an earlier handler has destroyed it or started it again
        timer->deadline = UINT64_MAX;
        if (timer->handler != nullptr)
            timer->handler(timer);
    }
    return static_cast<int>(due.size());
}

void timers_end(kex_t *bus) {
    for (kex_timer_t *timer : timers) {
        if (timer->bus == bus)
            timer->bus = nullptr; // never due again
    }
}

} // namespace sdbus

using namespace sdbus;

kex_timer_t *kex_timer_create() {
    kex_t *bus = dispatching != nullptr ? dispatching : !buses.empty() ? buses.front() : nullptr;
    if (bus == nullptr)
        return nullptr;
    timers.push_back(new kex_timer_t{bus, nullptr, UINT64_MAX});
    return timers.back();
}

void kex_timer_setHandler(kex_timer_t *timer, void (*handler)(kex_timer_t *)) {
    if (timer != nullptr)
        timer->handler = handler;
}

int kex_timer_start(kex_timer_t *timer, uint32_t milliseconds) {
    if (timer == nullptr || timer->bus == nullptr)
        return 0;
    timer->deadline = time_of(timer->bus) + uint64_t{milliseconds} * 1'000'000 / timer->bus->time_factor;
    turn_wish(timer->bus);
    return 1;
}

void kex_timer_destroy(kex_timer_t *timer) {
    if (std::erase(timers, timer) > 0)
        delete timer;
}

void kex_setClock(kex_t *bus, uint64_t (*clock)(void *), void *userdata) {
    if (bus == nullptr)
        return;
    bus->clock = clock;
    bus->clock_userdata = userdata;
    turn_wish(bus);
}

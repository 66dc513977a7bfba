// SPDX-License-Identifier: MIT
// One-shot timers. No check says when the latest is, but for its own limit: a machine may be busy.
#include "groups.h"
#include "host.h"

#include <unistd.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;
constexpr int kSoon = 20;   // milliseconds
constexpr int kLater = 150; // behind the former, even on a busy machine
constexpr int kSlack = 2;   // clocks that count otherwise

unsigned fired;

kex_timer_t *timer_make(void (*handler)(kex_timer_t *timer)) {
    kex_timer_t *timer = lib.kex_timer_create();
    expect(timer != nullptr, "kex_timer_create answers null");
    lib.kex_timer_setHandler(timer, handler);
    return timer;
}

void start(kex_timer_t *timer, uint32_t milliseconds) {
    expect(lib.kex_timer_start(timer, milliseconds) != 0, "kex_timer_start answers no");
}

void count(kex_timer_t *) {
    fired++;
}

void once() {
    host_begin();
    kex_timer_t *timer = timer_make(count);
    start(timer, kSoon);
    turn_until("the timer", [] { return fired > 0; });
    turn_for(5 * kSoon);
    expect_number("fired", fired, 1);
    lib.kex_timer_destroy(timer);
    host_end();
}

void not_before() {
    host_begin();
    kex_timer_t *timer = timer_make(count);
    const int64_t begin = now_in_milliseconds();
    start(timer, kLater);
    turn_until("the timer", [] { return fired > 0; });
    const int64_t took = now_in_milliseconds() - begin;
    expect(took >= kLater - kSlack, "a timer of %d ms after %d ms", kLater, static_cast<int>(took));
    saw("a timer of %d ms not before its time", kLater);
    lib.kex_timer_destroy(timer);
    host_end();
}

void from_the_loop() {
    host_begin();
    kex_timer_t *timer = timer_make(count);
    start(timer, 0);
    usleep(kSoon * 1000);
    expect_number("fired without a turn", fired, 0);
    turn_until("the timer", [] { return fired > 0; });
    lib.kex_timer_destroy(timer);
    host_end();
}

void by_time() {
    host_begin();
    kex_timer_t *late = timer_make([](kex_timer_t *) { event("late"); });
    kex_timer_t *early = timer_make([](kex_timer_t *) { event("early"); });
    start(late, kLater);
    start(early, kSoon);
    turn_until("both timers", [] { return event_was("late"); });
    expect_text("order", events, "early late");
    lib.kex_timer_destroy(late);
    lib.kex_timer_destroy(early);
    host_end();
}

void armed_again() {
    host_begin();
    kex_timer_t *timer = timer_make(count);
    const int64_t begin = now_in_milliseconds();
    start(timer, kSoon);
    start(timer, kLater);
    turn_until("the timer", [] { return fired > 0; });
    const int64_t took = now_in_milliseconds() - begin;
    expect(took >= kLater - kSlack, "it fired after %d ms, by its first start", static_cast<int>(took));
    turn_for(kLater);
    expect_number("fired", fired, 1);
    lib.kex_timer_destroy(timer);
    host_end();
}

void started_in_handler() {
    host_begin();
    kex_timer_t *timer = timer_make([](kex_timer_t *running) {
        if (++fired < 3)
            start(running, 1);
    });
    start(timer, 1);
    turn_until("the third time", [] { return fired >= 3; });
    turn_for(5 * kSoon);
    expect_number("fired", fired, 3);
    lib.kex_timer_destroy(timer);
    host_end();
}

// By a timer whose handler destroys it.
void expect_fired_once(void (*handler)(kex_timer_t *)) {
    host_begin();
    start(timer_make(handler), 1);
    turn_until("the timer", [] { return fired > 0; });
    turn_for(5 * kSoon);
    expect_number("fired", fired, 1);
    host_end();
}

void destroyed_in_handler() {
    expect_fired_once([](kex_timer_t *running) {
        fired++;
        lib.kex_timer_destroy(running);
    });
}

void started_then_destroyed_in_handler() {
    expect_fired_once([](kex_timer_t *running) {
        fired++;
        start(running, 1);
        lib.kex_timer_destroy(running);
    });
}

void destroyed() {
    host_begin();
    kex_timer_t *timer = timer_make(count);
    start(timer, 1);
    lib.kex_timer_destroy(timer);
    lib.kex_timer_destroy(timer_make(count)); // never started
    kex_timer_t *other = timer_make([](kex_timer_t *) { event("other"); });
    start(other, 2);
    turn_until("a timer that was not destroyed", [] { return event_was("other"); });
    turn_for(5 * kSoon);
    expect_number("fired", fired, 0);
    lib.kex_timer_destroy(other);
    host_end();
}

void without_handler() {
    host_begin();
    kex_timer_t *timer = lib.kex_timer_create();
    start(timer, 1);
    turn_for(kSoon);
    lib.kex_timer_setHandler(timer, count);
    start(timer, 1);
    turn_until("the timer, with a handler", [] { return fired > 0; });
    expect_number("fired", fired, 1);
    lib.kex_timer_destroy(timer);
    host_end();
}

void destroys_another() {
    static kex_timer_t *other;
    host_begin();
    other = timer_make(count);
    kex_timer_t *timer = timer_make([](kex_timer_t *) {
        event("first");
        lib.kex_timer_destroy(other);
    });
    start(timer, kSoon);
    start(other, kSoon + 1);
    turn_until("the first timer", [] { return event_was("first"); });
    turn_for(5 * kSoon);
    expect_number("the other one fired", fired, 0);
    lib.kex_timer_destroy(timer);
    host_end();
}

void many() {
    constexpr unsigned kMany = 200;
    static kex_timer_t *timers[kMany];
    host_begin();
    for (unsigned i = 0; i < kMany; i++) {
        timers[i] = timer_make(count);
        start(timers[i], i % 40);
    }
    turn_until("200 timers", [] { return fired >= kMany; });
    turn_for(kSoon);
    expect_number("fired", fired, kMany);
    for (kex_timer_t *timer : timers)
        lib.kex_timer_destroy(timer);
    host_end();
}

void left_over() {
    host_begin();
    start(timer_make(count), 1);
    host_end();
    saw("a running timer goes with its bus");
}

void second_bus() {
    host_begin();
    kex_t *other = lib.kex_create("other");
    expect(other != nullptr, "a process cannot have two buses");
    kex_timer_t *timer = timer_make(count); // of the first one
    start(timer, 1);
    usleep(kSoon * 1000);
    for (unsigned i = 0; i < 5; i++)
        turn(other);
    expect_number("fired in turns of the second bus", fired, 0);
    turn_until("the timer, in turns of the first one", [] { return fired > 0; });
    lib.kex_timer_destroy(timer);
    lib.kex_destroy(other);
    host_end();
}

constexpr char kOnce[] = "What runs, once per start, when the time is up.";
constexpr char kArms[] = "One shot, from the loop; starting again re-arms.";
constexpr char kInside[] = "Allowed inside its handler.";
constexpr char kBuses[] =
    "Timers have no bus argument in the contract: they belong to the bus that is dispatching when "
    "they are created, else to the process's first bus.";

constexpr Check kChecks[] = {
    {"timers.once", kMust, kOnce, once, nullptr, 0, false},
    {"timers.not_before", kMust, kOnce, not_before, nullptr, 0, false},
    {"timers.from_the_loop", kMust, kArms, from_the_loop, nullptr, 0, false},
    {"timers.by_time", kMust, kOnce, by_time, nullptr, 0, false},
    {"timers.armed_again", kMust, kArms, armed_again, nullptr, 0, false},
    {"timers.started_in_handler", kMust, kArms, started_in_handler, nullptr, 0, false},
    {"timers.destroyed_in_handler", kMust, kInside, destroyed_in_handler, nullptr, 0, false},
    {"timers.started_then_destroyed", kMust, kInside, started_then_destroyed_in_handler, nullptr, 0, false},
    {"timers.destroyed", kMust, kOnce, destroyed, nullptr, 0, false},
    {"timers.without_handler", kMust, "A timer that does not run yet, or NULL.", without_handler, nullptr, 0, false},
    {"timers.destroys_another", kMust, kInside, destroys_another, nullptr, 0, false},
    {"timers.many", kMust, kOnce, many, nullptr, 0, false},
    {"timers.left_over", kMust, "frees everything that belongs to the bus", left_over, nullptr, 0, false},
    {"timers.second_bus", Level::should, kBuses, second_bus, nullptr, 0, false},
};

} // namespace

const Group kTimers = group_of(kChecks);

} // namespace conformance

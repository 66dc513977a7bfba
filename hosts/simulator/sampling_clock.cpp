// SPDX-License-Identifier: MIT
// The sampling clock, on a timer of the machine.
#include "sampling_clock.h"

#include "clock.h"
#include "kex_host.h"

#include <sys/timerfd.h>
#include <unistd.h>

namespace {

constexpr uint64_t kStepNs = kStepMs * 1000000u;
constexpr uint64_t kSecondNs = 1000000000;

struct {
    kex_t *bus;
    const sampling_listener *listener;
    uint64_t (*nanoseconds)();
    uint64_t origin; // of the steady clock, where this clock stands at 0
    uint64_t steps;  // that have been made, or left out
    uint32_t period; // in steps; 0: it does not run
    int timer;
    bool begun;
} the_clock = {nullptr, nullptr, nullptr, 0, 0, 0, -1, false};

uint64_t machine_nanoseconds() {
    const moment now = moment_steady();
    return now.seconds * kSecondNs + now.nanoseconds;
}

uint64_t steady_nanoseconds() {
    return the_clock.nanoseconds != nullptr ? the_clock.nanoseconds() : machine_nanoseconds();
}

// Whole periods that are over, in steps.
uint64_t steps_over() {
    const uint64_t steps = sampling_clock_nanoseconds() / kStepNs;
    return steps - steps % the_clock.period;
}

void timer_ready(int fd, void *) {
    uint64_t times;
    if (read(fd, &times, sizeof times) == sizeof times)
        sampling_clock_advance();
}

// False: none can be had now. Nothing of it is left then, so that the next call makes it.
bool timer_make() {
    const int made = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    if (made < 0)
        return false;
    if (!kex_watch(the_clock.bus, made, nullptr, timer_ready)) {
        close(made);
        return false;
    }
    the_clock.timer = made;
    return true;
}

// On the grid of the clock: it does not matter when it is set.
bool timer_set(uint32_t period) {
    if (the_clock.timer < 0 && !timer_make())
        return false;
    itimerspec when = {};
    if (period > 0) {
        const uint64_t length = period * kStepNs;
        const uint64_t next = the_clock.origin + (sampling_clock_nanoseconds() / length + 1) * length;
        when.it_value.tv_sec = static_cast<time_t>(next / kSecondNs);
        when.it_value.tv_nsec = static_cast<long>(next % kSecondNs);
        when.it_interval.tv_nsec = static_cast<long>(length);
    }
    return timerfd_settime(the_clock.timer, TFD_TIMER_ABSTIME, &when, nullptr) == 0;
}

} // namespace

void sampling_clock_begin(kex_t *bus, const sampling_listener *listener) {
    the_clock.bus = bus;
    the_clock.listener = listener;
    if (the_clock.begun)
        return;
    the_clock.begun = true;
    the_clock.origin = steady_nanoseconds();
}

bool sampling_clock_run(uint32_t period_ms) {
    const uint32_t period = period_ms / kStepMs;
    if (period == the_clock.period)
        return true;
    if (the_clock.nanoseconds == nullptr && !timer_set(period))
        return false;
    const bool stood = the_clock.period == 0;
    the_clock.period = period;
    if (stood && period > 0)
        the_clock.steps = steps_over();
    return true;
}

void sampling_clock_advance() {
    if (the_clock.period == 0)
        return;
    const uint64_t over = steps_over();
    if (over < the_clock.steps) // the period has just become longer
        return;
    if (over - the_clock.steps > kMostLateMs / kStepMs) {
        the_clock.steps = over - the_clock.period;
        the_clock.listener->skip(sampling_clock_position());
    }
    for (; the_clock.steps < over; the_clock.steps++)
        the_clock.listener->step(sampling_clock_position());
}

uint64_t sampling_clock_nanoseconds() {
    return steady_nanoseconds() - the_clock.origin;
}

uint64_t sampling_clock_now() {
    return sampling_clock_nanoseconds() / (kSecondNs / kSampleRate);
}

uint64_t sampling_clock_before(uint64_t nanoseconds) {
    const uint64_t now = sampling_clock_nanoseconds();
    return the_clock.nanoseconds != nullptr ? now : now > nanoseconds ? now - nanoseconds : 0;
}

uint64_t sampling_clock_position() {
    return the_clock.steps * kStepSamples;
}

void sampling_clock_replace(uint64_t (*nanoseconds)()) {
    the_clock.nanoseconds = nanoseconds;
    the_clock.origin = steady_nanoseconds();
    the_clock.steps = 0;
    the_clock.period = 0;
}

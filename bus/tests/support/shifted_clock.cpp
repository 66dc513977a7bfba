// SPDX-License-Identifier: MIT
// Implements shifted_clock.h: the linker sends the reading of clocks here (--wrap).
#include "shifted_clock.h"

#include <ctime>

namespace {

constexpr uint64_t kSecond = 1000000000;

uint64_t ahead;
bool stopped;
timespec stopped_at; // of the clock that is not set

} // namespace

extern "C" {
int __real_clock_gettime(clockid_t clock, timespec *now);
int __wrap_clock_gettime(clockid_t clock, timespec *now);

int __wrap_clock_gettime(clockid_t clock, timespec *now) {
    const int result = __real_clock_gettime(clock, now);
    if (stopped && clock == CLOCK_MONOTONIC)
        *now = stopped_at;
    const uint64_t nanoseconds = static_cast<uint64_t>(now->tv_nsec) + ahead;
    now->tv_sec += static_cast<time_t>(nanoseconds / kSecond);
    now->tv_nsec = static_cast<long>(nanoseconds % kSecond);
    return result;
}
}

namespace support {

void clock_advance(uint64_t nanoseconds) {
    ahead += nanoseconds;
}

ClockStopped::ClockStopped() {
    __real_clock_gettime(CLOCK_MONOTONIC, &stopped_at);
    stopped = true;
}

ClockStopped::~ClockStopped() {
    stopped = false;
}

} // namespace support

// SPDX-License-Identifier: MIT
// Moments.
#include "clock.h"

#include <time.h>

namespace {

constexpr uint64_t kNanoseconds = 1000000000; // in a second
constexpr uint64_t kNtpEpoch = 2208988800;    // seconds from 1900 to 1970

moment moment_by(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return {static_cast<uint64_t>(now.tv_sec), static_cast<uint32_t>(now.tv_nsec)};
}

} // namespace

moment moment_of_day() {
    return moment_by(CLOCK_REALTIME);
}

moment moment_steady() {
    return moment_by(CLOCK_MONOTONIC);
}

uint64_t moment_ntp(moment when) {
    return (when.seconds + kNtpEpoch) << 32 | (uint64_t{when.nanoseconds} << 32) / kNanoseconds;
}

// SPDX-License-Identifier: MIT
// Implements clock.h.
#include "base/clock.h"

#include <time.h>

namespace bus {

namespace {

uint64_t clock_read(clockid_t id) {
    timespec now;
    clock_gettime(id, &now);
    return static_cast<uint64_t>(now.tv_sec) * kSecond + static_cast<uint64_t>(now.tv_nsec);
}

} // namespace

uint64_t clock_now(const Clock &clock) {
    return clock.now != nullptr ? clock.now(clock.userdata) : clock_monotonic();
}

uint64_t clock_monotonic() {
    return clock_read(CLOCK_MONOTONIC);
}

uint64_t clock_wall() {
    return clock_read(CLOCK_REALTIME);
}

} // namespace bus

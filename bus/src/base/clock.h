// SPDX-License-Identifier: MIT
// Clocks, in nanoseconds.
#ifndef KEX_CLOCK_H
#define KEX_CLOCK_H

#include <stdint.h>

namespace bus {

constexpr uint64_t kMicrosecond = 1000;
constexpr uint64_t kMillisecond = 1000 * kMicrosecond;
constexpr uint64_t kSecond = 1000 * kMillisecond;

// A host may replace the monotonic clock. Zero-filled, it is the kernel's.
struct Clock {
    uint64_t (*now)(void *userdata);
    void *userdata;
};

uint64_t clock_now(const Clock &clock);
// The kernel's monotonic clock, by which sleeping goes whatever clock a host has.
uint64_t clock_monotonic();
// Time of day.
uint64_t clock_wall();

} // namespace bus

#endif

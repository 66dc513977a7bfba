// SPDX-License-Identifier: MIT
/**
 * @file clock.h
 * Moments, as RTCP and statistics count them.
 */
#pragma once

#include <stdint.h>

/** A moment: since 1970 by the time of day, since some start by the steady clock. */
struct moment {
    uint64_t seconds;
    uint32_t nanoseconds; // below 1,000,000,000
};

/** Now, by the time of day, which may be set. */
moment moment_of_day();
/** Now, by the clock that never jumps. */
moment moment_steady();
/** A moment of the day as an NTP timestamp (RFC 3550 4): seconds since 1900, then their fraction in 2^-32 s. */
uint64_t moment_ntp(moment when);

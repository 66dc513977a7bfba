// SPDX-License-Identifier: MIT
// Moments, and in the units of NTP.
#include "clock.h"

#include <gtest/gtest.h>

#include <ctime>

TEST(Clock, NtpCountsFrom1900InFractionsOfASecond) {
    EXPECT_EQ(moment_ntp({0, 0}), 0x83AA7E8000000000u);
    EXPECT_EQ(moment_ntp({1, 500000000}), 0x83AA7E8180000000u);
    EXPECT_EQ(moment_ntp({0, 999999999}) >> 32, 0x83AA7E80u);
}

TEST(Clock, TimeOfDayAndSteadyClock) {
    const time_t before = time(nullptr);
    const moment day = moment_of_day();
    EXPECT_GE(day.seconds + 1, static_cast<uint64_t>(before));
    EXPECT_LE(day.seconds, static_cast<uint64_t>(time(nullptr)) + 1);
    const moment first = moment_steady(), second = moment_steady();
    EXPECT_LE(first.seconds * 1000000000 + first.nanoseconds, second.seconds * 1000000000 + second.nanoseconds);
    EXPECT_LT(second.nanoseconds, 1000000000u);
}

// SPDX-License-Identifier: MIT
#include "arrival_windows.h"

#include "sampling_clock.h"

#include <gtest/gtest.h>

namespace {

class ArrivalWindows : public testing::Test {
protected:
    ArrivalWindows() { arrival_windows_reset(&windows_); }
    // Packets of 20 ms for a second, the first one of that transit, the others of 0.
    void let_second_pass(int32_t transit) {
        bool is_over = false;
        for (int packet = 0; !is_over; packet++, now_ += 160)
            is_over = arrival_windows_note(&windows_, packet == 0 ? transit : 0, now_);
        arrival_windows_next(&windows_);
    }
    arrival_windows windows_;
    uint64_t now_ = 1000;
};

} // namespace

TEST_F(ArrivalWindows, OfNothingNothingIsEarlyOrLate) {
    EXPECT_EQ(arrival_windows_earliest(&windows_), INT32_MIN);
    EXPECT_EQ(arrival_windows_latest(&windows_), INT32_MAX);
}

TEST_F(ArrivalWindows, ASecondIsFromItsFirstPacketOn) {
    EXPECT_FALSE(arrival_windows_note(&windows_, 5, now_));
    EXPECT_FALSE(arrival_windows_note(&windows_, -7, now_ + kSampleRate - 1));
    EXPECT_TRUE(arrival_windows_note(&windows_, 3, now_ + kSampleRate));
    EXPECT_EQ(arrival_windows_earliest(&windows_), 5);
    EXPECT_EQ(arrival_windows_latest(&windows_), -7);
}

TEST_F(ArrivalWindows, EightSecondsAreKept) {
    let_second_pass(300);
    let_second_pass(-400);
    for (int second = 0; second < 5; second++)
        let_second_pass(1);
    EXPECT_EQ(arrival_windows_earliest(&windows_), 300);
    let_second_pass(1); // behind it the ninth begins
    EXPECT_FALSE(arrival_windows_note(&windows_, 0, now_));
    EXPECT_EQ(arrival_windows_earliest(&windows_), 1);
    EXPECT_EQ(arrival_windows_latest(&windows_), -400);
    let_second_pass(1);
    EXPECT_FALSE(arrival_windows_note(&windows_, 0, now_));
    EXPECT_EQ(arrival_windows_latest(&windows_), 0);
}

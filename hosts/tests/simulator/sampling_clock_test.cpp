// SPDX-License-Identifier: MIT
// The sampling clock, in a time of the test's own.
#include "sampling_clock.h"

#include <gtest/gtest.h>

#include <string>

namespace {

uint64_t now_ns;
std::string heard; // "s" a step, "k" a skip, each with its milliseconds

uint64_t the_time() {
    return now_ns;
}

void note_step(uint64_t position) {
    heard += "s" + std::to_string(position / 8) + " ";
}

void note_skip(uint64_t position) {
    heard += "k" + std::to_string(position / 8) + " ";
}

class SamplingClock : public testing::Test {
protected:
    void SetUp() override {
        static constexpr sampling_listener kListener = {note_skip, note_step};
        now_ns = 7777777; // since the machine was started, or whenever
        sampling_clock_replace(the_time);
        sampling_clock_begin(nullptr, &kListener);
        heard.clear();
    }
    void TearDown() override {
        sampling_clock_run(0);
        sampling_clock_replace(nullptr);
    }
    // What was made after so many microseconds more.
    static std::string after(uint64_t microseconds) {
        now_ns += microseconds * 1000;
        heard.clear();
        sampling_clock_advance();
        return heard;
    }
};

} // namespace

TEST_F(SamplingClock, MakesStepsWhenTheirPeriodIsOver) {
    EXPECT_EQ(after(1000000), "") << "it does not run";
    ASSERT_TRUE(sampling_clock_run(20));
    EXPECT_EQ(after(19999), "");
    EXPECT_EQ(after(1), "s1000 s1010 ");
    EXPECT_EQ(after(20000), "s1020 s1030 ");
    EXPECT_EQ(sampling_clock_position(), 8 * 1040u);
    EXPECT_EQ(sampling_clock_now(), 8 * 1040u);
    EXPECT_EQ(after(12500), "");
    EXPECT_EQ(sampling_clock_now(), 8 * 1052u + 4);
    EXPECT_EQ(sampling_clock_nanoseconds(), 1052500 * 1000u);
}

TEST_F(SamplingClock, ALateTurnDelaysNothingForGood) {
    ASSERT_TRUE(sampling_clock_run(20));
    EXPECT_EQ(after(33000), "s0 s10 ");
    EXPECT_EQ(after(7000), "s20 s30 ") << "on the grid from its begin on";
    EXPECT_EQ(after(40000), "s40 s50 s60 s70 ") << "40 ms late: all of it is made";
}

TEST_F(SamplingClock, WhatIsDueForLongerIsLeftOut) {
    ASSERT_TRUE(sampling_clock_run(20));
    EXPECT_EQ(after(20000), "s0 s10 ");
    EXPECT_EQ(after(60000), "k60 s60 s70 ");
    EXPECT_EQ(after(100000), "k160 s160 s170 ");
    EXPECT_EQ(after(30000000), "k30160 s30160 s30170 ") << "half a minute as well, and no more than a period of it";
    EXPECT_EQ(after(20000), "s30180 s30190 ");
}

TEST_F(SamplingClock, ThePeriodChangesWithoutAGapOrAStepTwice) {
    ASSERT_TRUE(sampling_clock_run(20));
    EXPECT_EQ(after(20000), "s0 s10 ");
    ASSERT_TRUE(sampling_clock_run(10));
    EXPECT_EQ(after(10000), "s20 ");
    ASSERT_TRUE(sampling_clock_run(20));
    EXPECT_EQ(after(5000), "") << "less than a period of twenty is over";
    EXPECT_EQ(after(5000), "s30 ");
    EXPECT_EQ(after(20000), "s40 s50 ");
    ASSERT_TRUE(sampling_clock_run(0));
    EXPECT_EQ(after(500000), "");
    ASSERT_TRUE(sampling_clock_run(20));
    EXPECT_EQ(after(20000), "s560 s570 ") << "what was meanwhile is not made up for";
}

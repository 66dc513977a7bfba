// SPDX-License-Identifier: MIT
// Filters side by side: amplitudes, how finely frequencies and moments are told apart, and that there is no end to time.
#include "tone_filters.h"

#include "made_up_slots.h"

#include <gtest/gtest.h>

namespace {

class ToneFilters : public testing::Test {
protected:
    ToneFilters() { tone_filters_begin(&filters_); }
    void take(uint32_t slots) {
        int16_t samples[kSlotSamples];
        for (uint32_t i = 0; i < slots; i++) {
            sound_.next(samples);
            tone_filters_take(&filters_, samples);
        }
    }

    static inline tone_filters filters_;
    SlotSound sound_;
};

} // namespace

TEST_F(ToneFilters, HaveOneForEachFrequencyAndRoomForSoMany) {
    const uint32_t first = tone_filters_add(&filters_, 425);
    EXPECT_EQ(tone_filters_add(&filters_, 440), first + 1);
    EXPECT_EQ(tone_filters_add(&filters_, 425), first) << "it is there";
    for (uint32_t frequency = 1000; filters_.count < kFilters; frequency++)
        EXPECT_LT(tone_filters_add(&filters_, frequency), kFilters);
    EXPECT_EQ(tone_filters_add(&filters_, 3000), kFilters) << "no room";
    EXPECT_EQ(tone_filters_add(&filters_, 440), first + 1);
}

TEST_F(ToneFilters, TellTheAmplitudeOfTheirFrequency) {
    const uint32_t low = tone_filters_add(&filters_, 425), high = tone_filters_add(&filters_, 1400);
    sound_.set({{425, 5000}, {1400, 700}});
    take(kSlotsKept);
    EXPECT_NEAR(tone_filters_amplitude(&filters_, low, 32, 0), 5000, 25);
    EXPECT_NEAR(tone_filters_amplitude(&filters_, high, 32, 0), 700, 25);
    EXPECT_NEAR(filters_.envelope[low], 5000, 50);
    EXPECT_NEAR(filters_.loudness, std::hypot(5000, 700), 100) << "of a sine of the same power";
}

TEST_F(ToneFilters, ManySlotsTellNearFrequenciesApart) {
    const uint32_t own = tone_filters_add(&filters_, 425), beside = tone_filters_add(&filters_, 433);
    sound_.set({{425, 5000}});
    take(kSlotsKept);
    EXPECT_NEAR(tone_filters_amplitude(&filters_, own, 25, 0), 5000, 50);
    EXPECT_LT(tone_filters_amplitude(&filters_, beside, 25, 0), 100) << "a turn further in 125 ms";
    EXPECT_GT(tone_filters_amplitude(&filters_, beside, 5, 0), 4500) << "in 25 ms they are the same";
}

TEST_F(ToneFilters, SlotsCanBeLeftOut) {
    const uint32_t filter = tone_filters_add(&filters_, 440);
    sound_.set({{440, 3000}});
    take(10);
    sound_.set({});
    take(6);
    EXPECT_NEAR(tone_filters_amplitude(&filters_, filter, 10, 6), 3000, 50);
    EXPECT_NEAR(tone_filters_amplitude(&filters_, filter, 6, 0), 0, 1);
    EXPECT_NEAR(tone_filters_amplitude(&filters_, filter, 1000, 6), 30, 1) << "no more than there are";
}

TEST_F(ToneFilters, AreTheSameAfterADay) {
    const uint32_t filter = tone_filters_add(&filters_, 413);
    filters_.slots += uint64_t{24} * 3600 * 200;
    sound_.set({{413, 4000}});
    take(kSlotsKept);
    EXPECT_NEAR(tone_filters_amplitude(&filters_, filter, 32, 0), 4000, 20);
}

TEST_F(ToneFilters, ForgetWhatTheyWereGiven) {
    const uint32_t filter = tone_filters_add(&filters_, 425);
    sound_.set({{425, 5000}});
    take(kSlotsKept);
    tone_filters_forget(&filters_);
    EXPECT_EQ(tone_filters_amplitude(&filters_, filter, 32, 0), 0);
    EXPECT_EQ(filters_.count, 1u) << "but not their frequencies";
}

TEST_F(ToneFilters, TakeTheLoudestSamples) {
    const uint32_t filter = tone_filters_add(&filters_, 1000);
    int16_t samples[kSlotSamples];
    for (uint32_t i = 0; i < kSlotSamples; i++)
        samples[i] = i % 8 < 4 ? INT16_MAX : INT16_MIN;
    for (uint32_t i = 0; i < kSlotsKept; i++)
        tone_filters_take(&filters_, samples);
    EXPECT_NEAR(tone_filters_amplitude(&filters_, filter, 32, 0), 32768 * 4 / 3.14159 * 1.026, 500) << "of a square";
    EXPECT_TRUE(std::isfinite(filters_.loudness));
}

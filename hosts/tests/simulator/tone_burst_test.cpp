// SPDX-License-Identifier: MIT
// When frequencies sound: bursts with their begins and ends.
#include "tone_burst.h"

#include "made_up_slots.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct burst_times {
    double begin, end; // ms
};

class ToneBurst : public testing::Test {
protected:
    ToneBurst() { tone_filters_begin(&filters_); }
    void look_for(uint32_t first, uint32_t second = 0, bool modulates = false) {
        ASSERT_TRUE(tone_sound_make(&sound_, &filters_, first, second, modulates));
        tone_sound_part(&sound_, &filters_);
    }
    void take(std::initializer_list<partial> sum, uint32_t ms) {
        int16_t samples[kSlotSamples];
        generator_.set(sum);
        for (uint32_t over = 0; over < ms; over += kSlotMs) {
            generator_.next(samples);
            tone_filters_take(&filters_, samples);
            const tone_burst_news news = tone_burst_take(&burst_, &sound_, &filters_);
            begins_ += news.begins;
            if (news.ends)
                found_.push_back({burst_.begin * kSlotMs - kBehindMs, burst_.end * kSlotMs - kBehindMs});
        }
    }
    void silence(uint32_t ms) { take({}, ms); }

    // Slots are counted from kSlotsKept on, and an envelope is half of its length behind the sound.
    static constexpr double kBehindMs = kSlotsKept * kSlotMs + kEnvelopeSlots * kSlotMs / 2.0;
    static inline tone_filters filters_;
    SlotSound generator_;
    tone_sound sound_ = {};
    tone_burst burst_ = {};
    uint32_t begins_ = 0;
    std::vector<burst_times> found_;
};

} // namespace

TEST_F(ToneBurst, BeginAndEndAreFoundWithinMilliseconds) {
    look_for(425);
    silence(100);
    for (uint32_t ms : {50u, 80u, 100u, 200u, 500u, 2000u}) {
        const uint32_t before = static_cast<uint32_t>(filters_.slots - kSlotsKept) * kSlotMs;
        found_.clear();
        take({{425, 5000}}, ms);
        silence(200);
        ASSERT_EQ(found_.size(), 1u) << ms;
        EXPECT_NEAR(found_[0].begin, before, 6) << ms;
        EXPECT_NEAR(found_[0].end - found_[0].begin, ms, 6) << ms;
    }
    EXPECT_EQ(begins_, 6u);
}

TEST_F(ToneBurst, OneThatIsTooShortOrTooSoftIsNone) {
    look_for(425);
    silence(100);
    take({{425, 5000}}, 5);
    silence(200);
    take({{425, 90}}, 500);
    silence(200);
    EXPECT_EQ(begins_, 0u);
    EXPECT_EQ(found_.size(), 0u);
}

TEST_F(ToneBurst, ABeatIsNoPause) {
    look_for(413, 438);
    take({{413, 5000}, {438, 5000}}, 2000);
    EXPECT_EQ(begins_, 1u);
    EXPECT_EQ(found_.size(), 0u) << "it goes on";
    silence(200);
    ASSERT_EQ(found_.size(), 1u);
    EXPECT_NEAR(found_[0].end, 2000, 25);
}

TEST_F(ToneBurst, OfASumBothMustSound) {
    look_for(350, 440);
    take({{440, 5000}}, 500);
    silence(200);
    take({{350, 5000}}, 500);
    silence(200);
    EXPECT_EQ(begins_, 0u);
    take({{350, 5000}, {440, 4000}}, 500);
    EXPECT_EQ(begins_, 1u);
}

TEST_F(ToneBurst, ModulationIsTheDifference) {
    look_for(400, 16, true);
    take({{400, 5000}}, 500);
    silence(200);
    EXPECT_EQ(begins_, 0u) << "not modulated";
    take({{400, 2500}, {384, 1250}, {416, 1250}}, 500);
    EXPECT_EQ(begins_, 1u);
}

TEST_F(ToneBurst, ANearFrequencyOfAnotherToneIsNotTaken) {
    tone_filters_add(&filters_, 440);
    tone_filters_add(&filters_, 400);
    look_for(425);
    for (double frequency : {400.0, 440.0}) {
        take({{frequency, 5000}}, 500);
        silence(200);
    }
    EXPECT_EQ(begins_, 0u);
    take({{425, 5000}}, 500);
    EXPECT_EQ(begins_, 1u);
}

TEST_F(ToneBurst, ASoundThatPassesIntoAnotherEnds) {
    look_for(425);
    take({{425, 5000}}, 500);
    take({{1800, 5000}}, 500);
    ASSERT_EQ(found_.size(), 1u);
    EXPECT_NEAR(found_[0].end, 500, 10);
}

TEST_F(ToneBurst, AVoiceThatComesAndGoesDoesNotEndIt) {
    look_for(425);
    take({{425, 5000}}, 500);
    take({{425, 5000}, {1000, 6000}}, 500);
    take({{425, 5000}}, 500);
    EXPECT_EQ(begins_, 1u);
    EXPECT_EQ(found_.size(), 0u);
}

TEST_F(ToneBurst, WithoutFiltersThereIsNoSound) {
    for (uint32_t frequency = 1000; filters_.count < kFilters; frequency++)
        tone_filters_add(&filters_, frequency);
    EXPECT_FALSE(tone_sound_make(&sound_, &filters_, 425, 0, false));
    EXPECT_FALSE(tone_sound_make(&sound_, &filters_, 1000, 425, false));
    EXPECT_FALSE(tone_sound_make(&sound_, &filters_, 1000, 500000, true));
    EXPECT_TRUE(tone_sound_make(&sound_, &filters_, 1000, 1001, false));
}

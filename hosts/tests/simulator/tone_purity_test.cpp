// SPDX-License-Identifier: MIT
// What is a tone, and what only has its frequency too.
#include "tone_purity.h"

#include "made_up_slots.h"

#include <gtest/gtest.h>

namespace {

class TonePurity : public testing::Test {
protected:
    TonePurity() { tone_filters_begin(&filters_); }
    // Whether a sound of these frequencies is pure in the sum, in so many slots behind one another.
    bool is_pure(uint32_t first, uint32_t second, bool modulates, std::initializer_list<partial> sum,
                 uint32_t count = 25) {
        tone_sound sound;
        int16_t samples[kSlotSamples];
        EXPECT_TRUE(tone_sound_make(&sound, &filters_, first, second, modulates));
        sound_.set(sum);
        for (uint32_t i = 0; i < count; i++) {
            sound_.next(samples);
            tone_filters_take(&filters_, samples);
        }
        return tone_is_pure(&sound, &filters_, count, 0);
    }

    static inline tone_filters filters_;
    SlotSound sound_;
};

} // namespace

TEST_F(TonePurity, AToneAloneAndBesideAVoiceIsPure) {
    EXPECT_TRUE(is_pure(425, 0, false, {{425, 5000}}));
    EXPECT_TRUE(is_pure(425, 0, false, {{425, 1600}, {2200, 6000}}));
    EXPECT_TRUE(is_pure(950, 0, false, {{950, 5000}, {1000, 6000}})) << "also near it";
    EXPECT_TRUE(is_pure(425, 0, false, {{425, 5000}}, 8)) << "in 40 ms";
}

TEST_F(TonePurity, SumsAndModulationAreTheSoundsOwn) {
    EXPECT_TRUE(is_pure(413, 438, false, {{413, 5000}, {438, 5000}}));
    EXPECT_TRUE(is_pure(350, 440, false, {{350, 5000}, {440, 5000}, {1000, 6000}}));
    // 400 Hz that 16 Hz modulates has two side bands, of half its amplitude.
    EXPECT_TRUE(is_pure(400, 16, true, {{400, 2500}, {384, 1250}, {416, 1250}, {1000, 6000}}));
}

TEST_F(TonePurity, WhatIsNearerToAnotherFrequencyIsAnotherOne) {
    EXPECT_FALSE(is_pure(425, 0, false, {{430, 5000}}));
    EXPECT_FALSE(is_pure(950, 0, false, {{941, 5000}, {1336, 5000}})) << "a key";
    EXPECT_FALSE(is_pure(1200, 0, false, {{1209, 5000}, {697, 5000}}, 20)) << "in 100 ms too";
    EXPECT_TRUE(is_pure(425, 0, false, {{426, 5000}})) << "a network's tolerance";
}

TEST_F(TonePurity, AVoiceWithManyFrequenciesIsNoTone) {
    EXPECT_FALSE(is_pure(425, 0, false, {{340, 3000}, {425, 3000}, {510, 3000}, {595, 3000}}));
    EXPECT_FALSE(is_pure(425, 0, false, {{400, 3000}, {425, 2000}, {450, 3000}}));
}

TEST_F(TonePurity, NoiseIsNoTone) {
    tone_sound sound;
    uint32_t seed = 5, pure = 0;
    ASSERT_TRUE(tone_sound_make(&sound, &filters_, 425, 0, false));
    for (uint32_t i = 0; i < 2000; i++) {
        int16_t samples[kSlotSamples];
        for (int16_t &sample : samples) {
            seed = seed * 1664525 + 1013904223;
            sample = static_cast<int16_t>(seed >> 16);
        }
        tone_filters_take(&filters_, samples);
        pure += tone_is_pure(&sound, &filters_, 25, 0);
    }
    EXPECT_EQ(pure, 0u);
}

TEST_F(TonePurity, OfSilenceNothingIsSaidThatIsNoNumber) {
    tone_sound sound;
    ASSERT_TRUE(tone_sound_make(&sound, &filters_, 425, 0, false));
    EXPECT_FALSE(tone_is_pure(&sound, &filters_, 25, 0));
}

// SPDX-License-Identifier: MIT
// Sound in place of what is missing.
#include "concealment.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

namespace {

int16_t tone(uint32_t frequency, uint32_t at) {
    return static_cast<int16_t>(6000 * std::sin(6.283185307179586 * frequency * at / 8000));
}

} // namespace

TEST(Concealment, ATonePlaysOnAndFades) {
    for (uint32_t frequency : {100u, 200u, 400u, 800u}) { // whole periods fit
        concealment gap = {};
        int16_t before[kPlayedSamples];
        for (uint32_t i = 0; i < kPlayedSamples; i++)
            before[i] = tone(frequency, i);
        for (uint32_t i = 0; i < kPlayedSamples; i += 80)
            concealment_note(&gap, before + i, 80);
        for (uint32_t i = 0; i < 600; i++) {
            const double left = i < kFadeFrom ? 1 : i < kFadeEnd ? (kFadeEnd - i) / double{kFadeEnd - kFadeFrom} : 0;
            ASSERT_NEAR(concealment_next(&gap), left * tone(frequency, kPlayedSamples + i), 3) << frequency << " " << i;
        }
    }
}

TEST(Concealment, SoundThatComesBackIsJoinedWithoutAClick) {
    concealment gap = {};
    int16_t before[kPlayedSamples];
    for (uint32_t i = 0; i < kPlayedSamples; i++)
        before[i] = tone(400, i);
    concealment_note(&gap, before, kPlayedSamples);
    int16_t last = before[kPlayedSamples - 1];
    for (uint32_t i = 0; i < 300; i++) {
        // It comes back upside down.
        const int16_t real = static_cast<int16_t>(-tone(400, kPlayedSamples + i));
        const int16_t sample = i < 160 ? concealment_next(&gap) : concealment_join(&gap, real);
        EXPECT_LT(std::abs(sample - last), 2300) << i;
        if (i >= 160 + kJoinSamples) {
            EXPECT_EQ(sample, real) << i;
        }
        last = sample;
    }
}

TEST(Concealment, SilenceStaysSilence) {
    concealment gap = {};
    for (uint32_t i = 0; i < 600; i++)
        EXPECT_EQ(concealment_next(&gap), 0);
    EXPECT_EQ(concealment_join(&gap, 1234), 1234) << "out of silence there is nothing to join";
}

TEST(Concealment, FindsWhereSoundIsLikeItself) {
    int16_t samples[kLongestPeriod + kJoinSamples + kLongestPeriod];
    for (uint32_t i = 0; i < sizeof samples / sizeof samples[0]; i++)
        samples[i] = tone(80, i); // a period of 100 samples
    for (int32_t direction : {1, -1})
        EXPECT_EQ(period_find(samples + kLongestPeriod, direction, kLongestPeriod), 100u);
    EXPECT_LE(period_find(samples + kLongestPeriod, 1, 60), 60u);
}

// SPDX-License-Identifier: MIT
// Tones of a country by bit, and what cannot be learned.
#include "country_detector.h"

#include "country_cases.h"
#include "tone_player.h"

#include <gtest/gtest.h>

namespace {

class CountryDetector : public testing::Test {
protected:
    static void learn(const char *country, const tone_pattern *list = nullptr) {
        country_detector_learn(&detector_, country, list);
    }
    static void run(uint32_t ms) {
        for (; ms > 0; ms -= kStepMs) {
            int16_t samples[kStepSamples] = {};
            tone_player_add(&player_, samples, kStepSamples);
            country_detector_take(&detector_, samples);
        }
    }
    static void play(const tone_pattern &pattern, uint32_t ms) {
        tone_player_start(&player_, &pattern);
        run(ms);
    }
    static void play(const char *text, uint32_t ms) { play(tone_pattern_read(text), ms); }
    static void stop(uint32_t ms) {
        tone_player_stop(&player_);
        run(ms);
    }
    static constexpr uint32_t bits(std::initializer_list<uint32_t> tones) {
        uint32_t all = 0;
        for (uint32_t tone : tones)
            all |= 1U << tone;
        return all;
    }
    void TearDown() override { tone_player_stop(&player_); }

    static inline country_detector detector_;
    static inline tone_player player_;
};

} // namespace

TEST_F(CountryDetector, EqualTonesAreFoundTogether) {
    learn("JP");
    play("400/500,0/500", 2000);
    EXPECT_EQ(detector_.found, bits({TONE_BUSY, TONE_CONGESTION}));
    stop(2000);
    EXPECT_EQ(detector_.found, 0u);
}

TEST_F(CountryDetector, ATonesPauseIsStillTheTone) {
    learn("DE");
    play("425/1000,0/4000", 1700);
    EXPECT_EQ(detector_.found, bits({TONE_RINGING}));
    run(3000);
    EXPECT_EQ(detector_.found, bits({TONE_RINGING}));
    EXPECT_TRUE(country_detector_follows(&detector_));
    stop(1000);
    EXPECT_EQ(detector_.found, 0u);
    EXPECT_FALSE(country_detector_follows(&detector_));
}

TEST_F(CountryDetector, InALongPauseAnotherToneIsFound) {
    learn("DE");
    play("1400/80,0/15000", 2000);
    EXPECT_EQ(detector_.found, bits({TONE_WARNING}));
    play("425/480,0/480", 1500);
    EXPECT_EQ(detector_.found, bits({TONE_BUSY}));
}

TEST_F(CountryDetector, BurstsOfAToneThatEndsAreNoOtherTone) {
    learn("CH"); // two bursts of its congestion tone are those of its call waiting tone
    play("425/200,0/200", 2800);
    EXPECT_EQ(detector_.found, bits({TONE_CONGESTION}));
    tone_player_stop(&player_);
    for (uint32_t i = 0; i < 600; i++) {
        run(kStepMs);
        EXPECT_EQ(detector_.found & ~bits({TONE_CONGESTION}), 0u) << i;
    }
}

TEST_F(CountryDetector, FrequenciesAreHeardForAQuarterOfASecondMore) {
    learn("DE");
    EXPECT_FALSE(country_detector_hears(&detector_, 425));
    play("425", 500);
    EXPECT_TRUE(country_detector_hears(&detector_, 425));
    EXPECT_TRUE(country_detector_hears(&detector_, 440)) << "as near as that";
    EXPECT_FALSE(country_detector_hears(&detector_, 1000));
    EXPECT_TRUE(country_detector_sounds(&detector_));
    stop(500);
    EXPECT_FALSE(country_detector_hears(&detector_, 425));
    EXPECT_FALSE(country_detector_sounds(&detector_));
}

TEST_F(CountryDetector, LoudnessIsKnownForASecond) {
    learn("DE");
    stop(2000);
    play("425", 500);
    const double now = country_detector_now(&detector_);
    EXPECT_NEAR(country_detector_loudness(&detector_, now - 300, now).least, 5110, 200) << "-13 dBm0";
    EXPECT_NEAR(country_detector_loudness(&detector_, now - 300, now).most, 5110, 200);
    EXPECT_EQ(country_detector_loudness(&detector_, now - 1000, now - 600).most, 0);
    EXPECT_EQ(country_detector_loudness(&detector_, now, now - 10).most, 0) << "no time at all";
}

TEST_F(CountryDetector, ALongListIsFoundAndATooLongOneIsNot) {
    tone_pattern list = {};
    for (uint32_t i = 0; i < 20; i++) // as many frequencies as there are filters for, beside those of the country
        list.elements[list.count++] = {600 + i * 60, 0, false, kToneLevel, 200};
    learn("DE", &list);
    play(list, 4500);
    EXPECT_EQ(detector_.found, bits({TONES}));
    for (uint32_t i = list.count; i < kToneElements; i++)
        list.elements[list.count++] = {620 + i * 20, 0, false, kToneLevel, 200};
    learn("DE", &list);
    play(list, 13000);
    EXPECT_EQ(detector_.found, 0u) << "more than there is room for";
    play("425/480,0/480", 1500);
    EXPECT_EQ(detector_.found, bits({TONE_BUSY})) << "but the country's tones are";
}

TEST_F(CountryDetector, ListsThatMakeNoSenseAreLearnedWithoutHarm) {
    tone_pattern silent = {}, continuous = {}, odd = {};
    silent.elements[silent.count++] = {0, 0, false, kToneLevel, 500};
    for (uint32_t i = 0; i < kToneElements; i++)
        continuous.elements[continuous.count++] = {425, 0, false, kToneLevel, 60000};
    odd.elements[odd.count++] = {UINT32_MAX, UINT32_MAX, true, INT32_MIN, UINT32_MAX};
    odd.again = 7;
    for (const tone_pattern *list : {&silent, &continuous, &odd}) {
        learn("DE", list);
        stop(500);
        EXPECT_EQ(detector_.found, 0u);
        play("425/480,0/480", 1500);
        EXPECT_NE(detector_.found & bits({TONE_BUSY}), 0u);
    }
}

TEST_F(CountryDetector, ACountryThatIsNotKnownHasGermanys) {
    for (const char *country : {"XX", ""}) {
        learn(country);
        play("425/240,0/240", 1500);
        EXPECT_EQ(detector_.found, bits({TONE_CONGESTION}));
    }
}

TEST_F(CountryDetector, MinutesOfAToneAreOneTone) {
    learn("BE"); // of 167 ms, which is no whole number of slots
    play("425/167,0/167", 1500);
    for (uint32_t i = 0; i < 12000; i++) {
        run(kStepMs);
        ASSERT_EQ(detector_.found, bits({TONE_CONGESTION})) << i;
    }
}

// SPDX-License-Identifier: MIT
// Bursts by their moments alone: which tones they may be.
#include "cadence.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

constexpr uint32_t kSound = 7;

// A tone of one sound: burst and pause in turn.
cadence made(const std::vector<uint32_t> &ms, uint32_t again = 0) {
    cadence tone = {};
    for (size_t i = 0; i + 1 < ms.size() + 1; i += 2) {
        tone.bursts[tone.count++] = {kSound, ms[i], i + 1 < ms.size() ? ms[i + 1] : 0, -130, 0, 0};
        tone.period_ms += ms[i] + (i + 1 < ms.size() ? ms[i + 1] : 0);
    }
    tone.again = again;
    return tone;
}

// Tones of a network, all followed at once.
class Cadences : public testing::Test {
protected:
    void add(const std::vector<uint32_t> &ms, uint32_t again = 0) {
        tones_.push_back(made(ms, again));
        matches_.emplace_back();
        cadences_part(tones_.data(), static_cast<uint32_t>(tones_.size()));
    }
    void burst(double from, double until, uint32_t sound = kSound, float level = 5000, bool calm = true) {
        for (size_t i = 0; i < tones_.size(); i++) {
            check(i, from, false);
            cadence_begin(&matches_[i], &tones_[i], sound, from, calm);
            check(i, until, false);
            cadence_end(&matches_[i], &tones_[i], sound, until, level, true);
        }
    }
    void pause_until(double now) {
        for (size_t i = 0; i < tones_.size(); i++)
            check(i, now, true);
    }
    bool is_credible(size_t tone) const {
        for (uint32_t i = 0; i < tones_[tone].count; i++)
            if (cadence_place_is_credible(&matches_[tone].places[i]))
                return true;
        return false;
    }

    std::vector<cadence> tones_;
    std::vector<cadence_match> matches_;

private:
    void check(size_t tone, double now, bool quiet) { cadence_check(&matches_[tone], &tones_[tone], now, quiet); }
};

} // namespace

TEST_F(Cadences, ABurstIsWhatItsLengthAllows) {
    add({480, 480}), add({240, 240}), add({1000, 4000});
    burst(100, 580);
    EXPECT_TRUE(is_credible(0));
    EXPECT_FALSE(is_credible(1)) << "it would have ended";
    EXPECT_FALSE(is_credible(2)) << "too short, and the first: it may have been entered in its middle";
    EXPECT_TRUE(matches_[2].places[0].alive);
    EXPECT_EQ(matches_[0].places[0].matched, 1u);
    burst(1060, 1540);
    EXPECT_EQ(matches_[0].places[0].matched, 3u);
    EXPECT_EQ(matches_[0].places[0].first, 100);
}

TEST_F(Cadences, APauseThatIsTooLongEndsIt) {
    add({480, 480});
    burst(0, 480);
    burst(960, 1440);
    pause_until(1900);
    EXPECT_TRUE(is_credible(0));
    pause_until(2100);
    EXPECT_FALSE(is_credible(0));
}

TEST_F(Cadences, ABurstBehindAnotherPauseBeginsAnew) {
    add({480, 480});
    burst(0, 480);
    burst(700, 1180);
    EXPECT_EQ(matches_[0].places[0].matched, 1u);
    EXPECT_EQ(matches_[0].places[0].first, 700);
}

TEST_F(Cadences, OneThatWasEnteredInItsMiddleNeedsMore) {
    add({100, 100}), add({300, 100, 200, 100}, 1); // 300 ms once, then 200 ms again and again
    burst(0, 120);                                 // the end of a burst
    EXPECT_FALSE(is_credible(1));
    burst(220, 420);
    EXPECT_FALSE(is_credible(1)) << "a pause and a burst";
    burst(520, 720);
    EXPECT_TRUE(is_credible(1));
}

TEST_F(Cadences, AFirstBurstIsABeginOfItsOwn) {
    add({480, 480});
    burst(0, 200); // the end of a burst
    EXPECT_FALSE(is_credible(0));
    burst(680, 1160);
    EXPECT_TRUE(is_credible(0));
    EXPECT_EQ(matches_[0].places[0].first, 680);
}

TEST_F(Cadences, SeveralBurstsAreFollowedInTheirOrder) {
    add({200, 200, 600, 1000}), add({200, 200});
    burst(0, 200);
    EXPECT_TRUE(is_credible(0));
    EXPECT_TRUE(is_credible(1));
    burst(400, 1000);
    EXPECT_TRUE(is_credible(0));
    EXPECT_FALSE(is_credible(1));
    burst(2000, 2200);
    EXPECT_EQ(matches_[0].places[0].matched, 5u) << "from its begin again";
}

TEST_F(Cadences, WhatIsPlayedOnceIsNotExpectedAgain) {
    add({100, 50, 300, 300}, 1);
    burst(0, 100);
    burst(150, 450);
    burst(750, 1050);
    EXPECT_EQ(matches_[0].places[1].matched, 5u);
    EXPECT_EQ(matches_[0].places[1].first, 0);
}

TEST_F(Cadences, AContinuousToneHasNoEnd) {
    add({0});
    cadence_begin(&matches_[0], &tones_[0], kSound, 0, true);
    cadence_check(&matches_[0], &tones_[0], 3600000, false);
    EXPECT_TRUE(is_credible(0));
    cadence_end(&matches_[0], &tones_[0], kSound, 3600000, 5000, true);
    EXPECT_FALSE(is_credible(0));
}

TEST_F(Cadences, LengthsThatAreNearAreToldApart) {
    add({167, 167}), add({200, 200}), add({175, 175});
    burst(0, 168);
    EXPECT_TRUE(is_credible(0));
    EXPECT_FALSE(is_credible(1));
    EXPECT_EQ(cadence_is_equal(&tones_[0], &tones_[1]), false);
    for (const cadence &tone : tones_)
        EXPECT_GE(tone.bursts[0].ms_near, 8u) << "but no finer than a burst is measured";
}

TEST_F(Cadences, TheSecondBurstMayBeSofter) {
    add({375, 375, 375, 375}), add({375, 375});
    tones_[0].bursts[1].level = -230;
    burst(0, 375, kSound, 5000);
    burst(750, 1125, kSound, 1600);
    EXPECT_TRUE(is_credible(0));
    EXPECT_FALSE(is_credible(1));
}

TEST_F(Cadences, WhereSomebodySpokeMoreIsNeeded) {
    add({200, 200});
    for (uint32_t i = 0; i < 3; i++) {
        EXPECT_EQ(is_credible(0), i == 1) << "only the first burst, which no pause has";
        burst(i * 400, i * 400 + 200, kSound, 5000, false);
    }
    EXPECT_TRUE(is_credible(0)) << "three bursts and two pauses";
}

TEST_F(Cadences, BurstsOfAnotherToneCountForLess) {
    add({200, 200});
    burst(0, 200);
    cadence_doubt(&matches_[0], &tones_[0], 0);
    EXPECT_FALSE(is_credible(0));
    EXPECT_TRUE(cadence_may_become(&matches_[0], &tones_[0], 0));
    EXPECT_FALSE(cadence_may_become(&matches_[0], &tones_[0], 1)) << "not what began later";
    burst(400, 600);
    EXPECT_TRUE(is_credible(0));
    EXPECT_FALSE(cadence_may_become(&matches_[0], &tones_[0], 0)) << "it is";
}

TEST_F(Cadences, OtherSoundsAreNotItsBursts) {
    add({200, 200});
    burst(0, 200);
    burst(250, 350, kSound + 1);
    burst(400, 600);
    EXPECT_EQ(matches_[0].places[0].matched, 3u);
}

TEST_F(Cadences, ATonePatternThatIsNotKnownMatchesNothing) {
    tones_.push_back({});
    matches_.emplace_back();
    burst(0, 200);
    EXPECT_FALSE(is_credible(0));
}

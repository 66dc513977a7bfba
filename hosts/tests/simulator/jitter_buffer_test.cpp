// SPDX-License-Identifier: MIT
// What is played of packets that come early, late, twice, in another order, or not at all.
#include "jitter_buffer.h"

#include "sampling_clock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace {

constexpr uint32_t kMs = 8;             // samples
constexpr uint32_t kPacket = 160;       // samples: 20 ms
constexpr uint32_t kBegin = 0xFFFFFF00; // RTP time, which wraps soon
constexpr uint64_t kStart = 80000;      // sampling clock, of the first packet's arrival

class Stream : public testing::Test {
protected:
    Stream() { jitter_buffer_restart(&buffer_, kStart); }
    // What the far end said at a moment of its RTP time: each sample another one, and none of them 0.
    static int16_t said(uint32_t at) { return static_cast<int16_t>(1 + at % 30000); }

    // Plays until a moment, then a packet comes. Times in ms from the first packet on.
    bool put(uint32_t number, int32_t came, uint32_t samples = kPacket, int32_t jump = 0) {
        play_until(came);
        std::vector<int16_t> voice(samples);
        const uint32_t from = number * kPacket + static_cast<uint32_t>(jump);
        for (uint32_t i = 0; i < samples; i++)
            voice[i] = said(from + i);
        return jitter_buffer_put(&buffer_, &settings_, kBegin + from, voice.data(), samples,
                                 kStart + static_cast<uint64_t>(came) * kMs);
    }
    // In time, all of them.
    void put_all(uint32_t from, uint32_t to) {
        for (uint32_t number = from; number < to; number++)
            EXPECT_TRUE(put(number, static_cast<int32_t>(number) * 20)) << number;
    }
    void play_until(int32_t ms) {
        int16_t step[kStepSamples];
        while (played_.size() + kStepSamples <= static_cast<size_t>(ms) * kMs) {
            jitter_buffer_take(&buffer_, kStart + played_.size(), step);
            played_.insert(played_.end(), step, step + kStepSamples);
        }
    }
    // Whether the packet was played whole at that moment, in ms.
    bool is_played(uint32_t number, int32_t at, uint32_t samples = kPacket) const {
        for (uint32_t i = 0; i < samples; i++)
            if (played_.at(static_cast<size_t>(at) * kMs + i) != said(number * kPacket + i))
                return false;
        return true;
    }

    jitter_settings settings_ = kJitterSettings;
    jitter_buffer buffer_ = {};
    std::vector<int16_t> played_; // from the first packet's arrival on
};

} // namespace

TEST_F(Stream, EachSampleIsHeardFortyMillisecondsAfterItCame) {
    put_all(0, 50);
    play_until(1040);
    EXPECT_EQ(std::count(played_.begin(), played_.begin() + 40 * kMs, 0), 40 * kMs) << "silence before";
    for (uint32_t number = 0; number < 50; number++)
        EXPECT_TRUE(is_played(number, 40 + static_cast<int32_t>(number) * 20)) << number;
    const jitter_counts &counts = buffer_.counts;
    EXPECT_EQ(counts.late + counts.overruns + counts.underruns + counts.concealed + counts.adjusted, 0u);
    EXPECT_EQ(counts.shortest, 40 * kMs);
    EXPECT_EQ(counts.longest, 40 * kMs);
    EXPECT_EQ(counts.sum, uint64_t{50} * 40 * kMs);
}

TEST_F(Stream, PacketsOfTenAndThirtyMillisecondsJoinToo) {
    EXPECT_TRUE(put(0, 0, 80));
    EXPECT_TRUE(put(0, 10, 240, 80));
    EXPECT_TRUE(put(2, 40, 80));
    play_until(100);
    for (uint32_t i = 0; i < 400; i++)
        EXPECT_EQ(played_[40 * kMs + i], said(i)) << i;
}

TEST_F(Stream, NeighboursThatWereSwappedAreHeardInOrder) {
    put_all(0, 10);
    EXPECT_TRUE(put(11, 201));
    EXPECT_TRUE(put(10, 202));
    put_all(12, 20);
    play_until(440);
    for (uint32_t number = 0; number < 20; number++)
        EXPECT_TRUE(is_played(number, 40 + static_cast<int32_t>(number) * 20)) << number;
    EXPECT_EQ(buffer_.counts.concealed, 0u);
}

TEST_F(Stream, APacketThatComesTwiceIsHeardOnce) {
    for (uint32_t number = 0; number < 20; number++) {
        EXPECT_TRUE(put(number, static_cast<int32_t>(number) * 20));
        put(number, static_cast<int32_t>(number) * 20 + 5);
    }
    play_until(440);
    for (uint32_t number = 0; number < 20; number++)
        EXPECT_TRUE(is_played(number, 40 + static_cast<int32_t>(number) * 20)) << number;
}

TEST_F(Stream, AStragglerBehindItsTimeIsCountedAndNotHeard) {
    put_all(0, 10);
    put_all(11, 16);
    EXPECT_FALSE(put(10, 320)) << "it was to be heard from 240 on";
    put_all(17, 30);
    play_until(640);
    EXPECT_EQ(buffer_.counts.late, 1u);
    EXPECT_TRUE(is_played(9, 220));
    for (uint32_t number = 18; number < 30; number++)
        EXPECT_TRUE(is_played(number, 40 + static_cast<int32_t>(number) * 20)) << number;
}

// A gap of 20 ms: something like what was before, and not silence.
TEST_F(Stream, WhatIsMissingIsConcealed) {
    put_all(0, 10);
    put_all(11, 20);
    play_until(440);
    EXPECT_EQ(buffer_.counts.concealed, kPacket);
    EXPECT_EQ(buffer_.counts.underruns, 0u) << "there was more behind the gap";
    for (uint32_t i = 0; i < kPacket; i++)
        EXPECT_NE(played_[240 * kMs + i], 0) << i;
    EXPECT_TRUE(is_played(12, 280));
    for (uint32_t i = kJoinSamples; i < kPacket; i++)
        EXPECT_EQ(played_[260 * kMs + i], said(11 * kPacket + i)) << i;
}

TEST_F(Stream, AfterTheLastPacketSoundFadesWithinSixtyMilliseconds) {
    put_all(0, 10);
    play_until(400);
    const size_t end = 240 * kMs;
    EXPECT_NE(played_[end + 9 * kMs], 0);
    for (size_t i = end + 60 * kMs; i < played_.size(); i++)
        EXPECT_EQ(played_[i], 0) << i - end;
    EXPECT_EQ(buffer_.counts.underruns, 1u);
    EXPECT_EQ(buffer_.counts.concealed, 60 * kMs) << "silence is not counted";
}

// The sender stood still for 150 ms, and then sends what it owes at once.
TEST_F(Stream, AStreamThatIsLateAsAWholeIsWaitedForAndHeardWhole) {
    put_all(0, 10);
    for (uint32_t number = 10; number < 17; number++)
        EXPECT_TRUE(put(number, 350 + static_cast<int32_t>(number) - 10)) << number;
    for (uint32_t number = 17; number < 25; number++)
        EXPECT_TRUE(put(number, static_cast<int32_t>(number) * 20 + 30)) << number;
    play_until(800);
    EXPECT_EQ(buffer_.counts.late, 0u);
    for (uint32_t number = 11; number < 25; number++)
        EXPECT_TRUE(is_played(number, 350 + (static_cast<int32_t>(number) - 10) * 20)) << number;
}

// Nothing is waited for longer than 200 ms.
TEST_F(Stream, NobodyWaitsForMoreThanTwoHundredMilliseconds) {
    put_all(0, 10);
    EXPECT_FALSE(put(10, 415)) << "it was to be heard 175 ms ago: the others would wait for 215 ms";
    EXPECT_EQ(buffer_.counts.late, 1u);
    settings_.adapts = false;
    put_all(20, 25);
    EXPECT_FALSE(put(25, 560)) << "60 ms late, and the wait is not to change";
    EXPECT_EQ(buffer_.counts.late, 2u);
}

TEST_F(Stream, AWaitThatNobodyNeedsAnyMoreBecomesShort) {
    put_all(0, 10);
    put(10, 350);
    for (uint32_t number = 11; number < 18; number++)
        put(number, 360);
    put_all(18, 1500);
    EXPECT_EQ(buffer_.counts.late, 0u);
    EXPECT_GT(buffer_.counts.adjusted, 5u);
    EXPECT_GE(buffer_.counts.longest, 145 * kMs);
    EXPECT_LE(buffer_.counts.last, 55 * kMs) << "within 30 s it is as short as before, but for the tolerance";
    EXPECT_GE(buffer_.counts.last, 25 * kMs);
}

// The delay grows by so much, and stays so.
TEST_F(Stream, AfterADelayThatStaysTheWaitIsTheShortestAgain) {
    for (int32_t grown : {60, 100, 150}) {
        buffer_ = {};
        jitter_buffer_restart(&buffer_, kStart);
        played_.clear();
        put_all(0, 10);
        for (uint32_t number = 10; number < 1000; number++)
            EXPECT_TRUE(put(number, static_cast<int32_t>(number) * 20 + grown)) << number;
        EXPECT_EQ(buffer_.counts.late, 0u) << grown;
        EXPECT_GE(buffer_.counts.last, 25 * kMs) << grown << ": 40 ms, but for the tolerance";
        EXPECT_LE(buffer_.counts.last, 55 * kMs) << grown;
    }
}

TEST_F(Stream, ADelayThatNobodyCouldWaitForIsFollowedFromItsSecondPacketOn) {
    for (int32_t grown : {215, 230, 240}) {
        buffer_ = {};
        jitter_buffer_restart(&buffer_, kStart);
        played_.clear();
        put_all(0, 10);
        EXPECT_FALSE(put(10, 200 + grown)) << grown << ": one may be a straggler";
        for (uint32_t number = 11; number < 20; number++)
            EXPECT_TRUE(put(number, static_cast<int32_t>(number) * 20 + grown)) << grown << " " << number;
        EXPECT_EQ(buffer_.counts.late, 1u) << grown;
        play_until(700);
        for (uint32_t number = 13; number < 19; number++)
            EXPECT_TRUE(is_played(number, static_cast<int32_t>(number) * 20 + grown / 10 * 10)) << grown;
    }
}

TEST_F(Stream, AFixedWaitIsNominalAgainWhenAllOfASecondIsLate) {
    settings_.adapts = false;
    for (int32_t grown : {50, 100, 180}) {
        buffer_ = {};
        jitter_buffer_restart(&buffer_, kStart);
        played_.clear();
        put_all(0, 10);
        for (uint32_t number = 10; number < 110; number++)
            put(number, static_cast<int32_t>(number) * 20 + grown);
        for (uint32_t number = 110; number < 120; number++)
            EXPECT_TRUE(put(number, static_cast<int32_t>(number) * 20 + grown)) << grown << " " << number;
        EXPECT_EQ(buffer_.counts.last, 40 * kMs) << grown;
        play_until(2500);
        for (uint32_t number = 112; number < 115; number++)
            EXPECT_TRUE(is_played(number, static_cast<int32_t>(number) * 20 + grown + 40)) << grown;
    }
}

TEST_F(Stream, ATimeThatBeginsAnewIsFollowedFromItsSecondPacketOn) {
    for (int32_t jump : {1000000, -1000000, 3000 + 2400, -3000 - 1600}) {
        buffer_ = {};
        jitter_buffer_restart(&buffer_, kStart);
        played_.clear();
        put_all(0, 10);
        EXPECT_FALSE(put(10, 200, kPacket, jump)) << jump << ": one may be wrong";
        EXPECT_TRUE(put(11, 220, kPacket, jump)) << jump;
        EXPECT_TRUE(put(12, 240, kPacket, jump)) << jump;
        play_until(320);
        const uint32_t from = 12 * kPacket + static_cast<uint32_t>(jump);
        for (uint32_t i = 0; i < kPacket; i++)
            ASSERT_EQ(played_[280 * kMs + i], said(from + i)) << jump << " " << i;
        EXPECT_EQ(buffer_.counts.late + buffer_.counts.overruns, 1u) << jump;
        EXPECT_EQ(buffer_.counts.flushed, 1u) << jump << ": packet 9 was still to be heard when time began anew";
    }
}

TEST_F(Stream, AnOddTimeAloneChangesNothing) {
    put_all(0, 10);
    EXPECT_FALSE(put(10, 200, kPacket, 32768 * 160));
    EXPECT_TRUE(put(11, 220));
    EXPECT_FALSE(put(12, 240, kPacket, -100000));
    EXPECT_TRUE(put(13, 260));
    EXPECT_TRUE(put(14, 280));
    play_until(340);
    EXPECT_TRUE(is_played(14, 320));
}

// RTP time is counted modulo 2^32: what is half of that away is as much before as behind.
TEST_F(Stream, TimesHalfOfAllTimeAwayAreFollowedToo) {
    put_all(0, 10);
    EXPECT_FALSE(put(10, 200, kPacket, INT32_MAX)) << "one may be wrong";
    EXPECT_TRUE(put(11, 220, kPacket, INT32_MIN)) << "a sample further on";
    EXPECT_TRUE(put(12, 240, kPacket, INT32_MIN));
    play_until(320);
    const uint32_t from = 12 * kPacket + static_cast<uint32_t>(INT32_MIN);
    for (uint32_t i = 0; i < kPacket; i++)
        ASSERT_EQ(played_[280 * kMs + i], said(from + i)) << i;
    EXPECT_EQ(buffer_.counts.late + buffer_.counts.overruns, 1u);
}

// Three days, after which the last packet would be as much ahead as behind.
TEST_F(Stream, AfterSilenceOfHalfOfAllTimeTheStreamGoesOn) {
    constexpr uint64_t kSilence = (uint64_t{1} << 31) + 80 * kSampleRate;
    int16_t step[kStepSamples], voice[kPacket] = {1, 2, 3};
    put_all(0, 10);
    for (uint64_t position = kStart; position < kStart + kSilence; position += kSilence / 400)
        jitter_buffer_take(&buffer_, position, step);
    uint64_t played = kStart + kSilence;
    for (uint32_t number = 0; number < 100; number++) {
        const uint64_t said = kSilence + uint64_t{number} * kPacket;
        const uint64_t came = kStart + said + (number < 50 ? 0 : 60 * kMs); // then they are late, and waited for
        for (; played + kStepSamples <= came; played += kStepSamples)
            jitter_buffer_take(&buffer_, played, step);
        EXPECT_TRUE(jitter_buffer_put(&buffer_, &settings_, kBegin + static_cast<uint32_t>(said), voice, kPacket, came))
            << number;
    }
    EXPECT_EQ(buffer_.counts.late, 0u);
}

// Each is heard, or counted; and then the stream goes on.
TEST_F(Stream, AThousandPacketsAtOnceAreCounted) {
    uint32_t taken = 0;
    for (uint32_t number = 0; number < 1000; number++)
        taken += put(number, 0);
    play_until(400);
    const jitter_counts &counts = buffer_.counts;
    const auto heard = static_cast<uint32_t>(
        std::count_if(played_.begin(), played_.end(), [](int16_t sample) { return sample != 0; }));
    EXPECT_EQ(taken + counts.overruns, 1000u);
    EXPECT_LE(taken - counts.flushed, 16u) << "what is left waits for 300 ms at most";
    EXPECT_GE(heard, (taken - counts.flushed) * kPacket);
}

// Time is left out where the process stood still: what came meanwhile is late, and the wait stays as it was.
TEST_F(Stream, AfterAStopOfOurOwnTheStreamGoesOnInPlace) {
    put_all(0, 10);
    play_until(200);
    played_.resize(1180 * kMs); // the second that nobody heard
    play_until(1200);
    for (uint32_t number = 10; number < 61; number++) { // they came in time, and are read only now
        std::vector<int16_t> voice(kPacket);
        for (uint32_t i = 0; i < kPacket; i++)
            voice[i] = said(number * kPacket + i);
        jitter_buffer_put(&buffer_, &settings_, kBegin + number * kPacket, voice.data(), kPacket,
                          kStart + number * kPacket);
    }
    put_all(61, 70); // in time again
    play_until(1400);
    EXPECT_EQ(buffer_.counts.late, 48u) << "those that were to be heard until 1,200 ms";
    for (uint32_t number = 60; number < 68; number++)
        EXPECT_TRUE(is_played(number, 40 + static_cast<int32_t>(number) * 20)) << number;
}

// ------------------------------------------------------------------------------------------------------------- Clocks

namespace {

// An hour of a tone from a sender whose clock goes wrong by so much. Returns the largest step between two samples.
struct hour {
    int largest_step;
    jitter_counts counts;
};

hour hour_of(double ppm) {
    static jitter_buffer buffer;
    buffer = {};
    jitter_buffer_restart(&buffer, 0);
    constexpr double kTurn = 6.283185307179586 * 440 / kSampleRate;
    constexpr uint32_t kHour = 3600 * kSampleRate;
    int16_t tone[kSampleRate]; // a second is a whole number of periods
    for (uint32_t i = 0; i < kSampleRate; i++)
        tone[i] = static_cast<int16_t>(6000 * std::sin(kTurn * i));
    uint64_t position = 0;
    int before = 0, largest = 0;
    for (uint32_t number = 0; number * kPacket < kHour; number++) {
        int16_t step[kStepSamples];
        const int16_t *samples = tone + number * kPacket % kSampleRate;
        const auto arrival = static_cast<uint64_t>(number * kPacket / (1 + ppm / 1e6));
        for (; position + kStepSamples <= arrival; position += kStepSamples) {
            jitter_buffer_take(&buffer, position, step);
            for (int16_t sample : step) {
                largest = std::max(largest, std::abs(sample - before));
                before = sample;
            }
        }
        jitter_buffer_put(&buffer, &kJitterSettings, number * kPacket, samples, kPacket, arrival);
    }
    return {largest, buffer.counts};
}

} // namespace

// 440 Hz at this level steps by 2,060 at most from sample to sample.
TEST(JitterBuffer, AnHourOfAnotherClockWithoutAClick) {
    for (double ppm : {0.0, 200.0, -200.0}) {
        const hour one = hour_of(ppm);
        EXPECT_LE(one.largest_step, 2600) << ppm;
        EXPECT_EQ(one.counts.late + one.counts.overruns + one.counts.underruns + one.counts.concealed, 0u) << ppm;
        EXPECT_LE(one.counts.longest, 60 * kMs) << ppm;
        const double periods = ppm == 0.0 ? 0 : 720.0 * kMs / 100; // 720 ms, 40 to 160 samples each time
        EXPECT_NEAR(one.counts.adjusted, periods, periods) << ppm;
    }
}

// Any packets at any time: nothing is read or written outside, and each packet is heard or counted.
TEST(JitterBuffer, AnyTimesAtAll) {
    static jitter_buffer buffer;
    unsigned seed = 1;
    const auto random = [&seed](uint32_t below) {
        seed = seed * 1664525 + 1013904223;
        return static_cast<uint32_t>(uint64_t{seed} * below >> 32);
    };
    buffer = {};
    jitter_buffer_restart(&buffer, 0);
    const int16_t samples[240] = {};
    int16_t step[kStepSamples];
    uint64_t position = 0;
    uint32_t timestamp = 0, refused = 0;
    for (int i = 0; i < 20000; i++) {
        timestamp += random(20) == 0 ? random(100) == 0 ? random(UINT32_MAX) : random(4000) - 2000 : 160;
        refused += !jitter_buffer_put(&buffer, &kJitterSettings, timestamp, samples, 80 * (1 + random(3)),
                                      position + random(160));
        for (uint32_t steps = random(5); steps > 0; steps--, position += kStepSamples)
            jitter_buffer_take(&buffer, position, step);
        position += random(500) == 0 ? random(30) * kSampleRate : 0;
    }
    EXPECT_EQ(buffer.counts.late + buffer.counts.overruns, refused);
}

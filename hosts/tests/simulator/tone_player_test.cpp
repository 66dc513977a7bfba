// SPDX-License-Identifier: MIT
// Tones of the network in their samples: frequency, level, cadence.
#include "tone_player.h"

#include "country_tones.h"
#include "sampling_clock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kMs = 8; // samples

std::vector<int16_t> played(const tone_pattern &pattern, uint32_t samples) {
    std::vector<int16_t> sound(samples);
    tone_player player = {};
    tone_player_start(&player, &pattern);
    for (uint32_t at = 0; at < samples; at += kStepSamples)
        tone_player_add(&player, sound.data() + at, kStepSamples);
    return sound;
}

// The amplitude of a frequency, which need not be whole.
double amplitude(const std::vector<int16_t> &sound, size_t from, size_t count, double frequency) {
    double real = 0, imaginary = 0;
    for (size_t i = 0; i < count; i++) {
        const double turn = 6.283185307179586 * frequency * static_cast<double>(i) / kSampleRate;
        real += sound[from + i] * std::cos(turn);
        imaginary += sound[from + i] * std::sin(turn);
    }
    return 2 * std::hypot(real, imaginary) / static_cast<double>(count);
}

// Where the spectrum of so much sound has its peak, within 10 Hz of a frequency.
double peak_near(const std::vector<int16_t> &sound, size_t from, size_t count, double frequency) {
    double best = 0, loudest = 0;
    for (double at = frequency - 10; at <= frequency + 10; at += 0.25) {
        const double found = amplitude(sound, from, count, at);
        best = found > loudest ? at : best;
        loudest = found > loudest ? found : loudest;
    }
    return best;
}

double dbm0(double peak) {
    return 20 * std::log10(peak / 22826);
}

constexpr const char *kCodes[] = {"FR", "DE", "GB", "US", "CH", "SE", "IT", "ES", "NL", "BE", "AU", "JP", "BR"};

} // namespace

// What the sound is: each element of each tone of each country, half a hertz and 0.3 dB near.
TEST(TonePlayer, EveryToneOfEveryCountrySoundsAsItsTableSays) {
    for (const char *country : kCodes) {
        for (uint32_t tone = 0; tone < TONES; tone++) {
            const tone_cell *cell = country_tone(country, static_cast<network_tone>(tone));
            const tone_pattern pattern = tone_pattern_read(cell->text);
            uint32_t period = 1200;
            for (uint32_t i = 0; i < pattern.count; i++)
                period += pattern.elements[i].ms;
            const std::vector<int16_t> sound = played(pattern, (period + 9) / 10 * 10 * kMs);
            size_t from = 0;
            for (uint32_t i = 0; i < pattern.count; i++) {
                const tone_element &element = pattern.elements[i];
                const size_t length = element.ms == 0 ? 1000 * kMs : element.ms * kMs;
                SCOPED_TRACE(std::string(country) + " " + cell->text + " element " + std::to_string(i));
                if (element.first == 0) {
                    const auto pause = sound.begin() + static_cast<ptrdiff_t>(from);
                    ASSERT_EQ(std::count(pause, pause + static_cast<ptrdiff_t>(length), 0),
                              static_cast<ptrdiff_t>(length));
                } else {
                    EXPECT_NE(sound[from + 1], 0) << "at the very sample";
                    // Over whole periods of the difference the two do not disturb each other.
                    const size_t count =
                        length >= 200 * kMs && element.second > 0 ? length / (40 * kMs) * (40 * kMs) : length;
                    const double level = dbm0(amplitude(sound, from, count, element.first));
                    EXPECT_NEAR(level, element.level / 10.0, 0.3);
                    if (element.second == 0 && length >= 150 * kMs) {
                        EXPECT_NEAR(peak_near(sound, from, length, element.first), element.first, 0.5);
                    }
                    if (element.second > 0 && !element.modulates) {
                        EXPECT_NEAR(dbm0(amplitude(sound, from, count, element.second)), element.level / 10.0, 0.3);
                    }
                    if (element.modulates) { // the first side band of full modulation is half the carrier
                        EXPECT_NEAR(dbm0(amplitude(sound, from, length, element.first + element.second)), -13 - 6.02,
                                    0.3);
                    }
                }
                from += length;
            }
        }
    }
}

TEST(TonePlayer, BeginsAnewAfterItsLastElement) {
    const tone_pattern pattern = tone_pattern_read("425/480,0/480");
    const std::vector<int16_t> sound = played(pattern, 3000 * kMs);
    for (size_t i = 0; i < 960 * kMs; i++)
        ASSERT_EQ(sound[i], sound[i + 960 * kMs]) << i;
}

TEST(TonePlayer, PlaysItsFirstElementsOnce) {
    const std::vector<int16_t> sound = played(tone_pattern_read("!425/100,!0/100,425/480,0/480"), 5000 * kMs);
    for (size_t i = 0; i < 960 * kMs; i++)
        ASSERT_EQ(sound[i + 200 * kMs], sound[i + 1160 * kMs]) << i;
    EXPECT_NE(sound[1160 * kMs + 101 * kMs], 0);
}

TEST(TonePlayer, BetweenTwoTonesThereIsAGap) {
    const tone_pattern busy = tone_pattern_read("425/480,0/480"), dial = tone_pattern_read("425");
    // In the burst; in the pause, where less is needed, or none. Stopped before the next one begins, or replaced by it.
    const struct {
        uint32_t played_ms, gap;
        bool stops;
    } rows[] = {{100, 80, false}, {500, 60, false}, {600, 0, false}, {100, 80, true}, {500, 60, true}, {600, 0, true}};
    for (const auto &[played_ms, gap, stops] : rows) {
        tone_player player = {};
        std::vector<int16_t> sound(1000 * kMs);
        tone_player_start(&player, &busy);
        tone_player_add(&player, sound.data(), played_ms * kMs);
        if (stops)
            tone_player_stop(&player);
        tone_player_start(&player, &dial);
        tone_player_add(&player, sound.data() + played_ms * kMs, 200 * kMs);
        for (uint32_t i = 0; i < gap * kMs; i++)
            ASSERT_EQ(sound[played_ms * kMs + i], 0) << i;
        EXPECT_NE(sound[(played_ms + gap) * kMs + 1], 0) << "at the very sample";
    }
}

TEST(TonePlayer, ATonePlaysOnWithoutAJump) {
    const std::vector<int16_t> sound = played(tone_pattern_read("350+440"), 5000 * kMs);
    for (size_t i = 0; i < 4000 * kMs; i++) // a second is a whole number of turns of both
        ASSERT_EQ(sound[i], sound[i + kSampleRate]) << i;
}

TEST(TonePlayer, IsSilentUntilItIsStartedAndOnceItIsStopped) {
    tone_player player = {};
    int16_t mix[kStepSamples] = {5, -5};
    tone_player_add(&player, mix, kStepSamples);
    EXPECT_EQ(mix[0], 5);
    const tone_pattern pattern = tone_pattern_read("425");
    tone_player_start(&player, &pattern);
    tone_player_stop(&player);
    tone_player_add(&player, mix, kStepSamples);
    EXPECT_EQ(mix[1], -5);
}

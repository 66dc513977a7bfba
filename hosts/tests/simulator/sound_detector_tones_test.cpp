// SPDX-License-Identifier: MIT
// What is heard of the tones of each country: by their samples alone, in time.
#include "heard_sound.h"

#include "country_tones.h"

#include <algorithm>

namespace {

constexpr const char *kCodes[] = {"FR", "DE", "GB", "US", "CH", "SE", "IT", "ES", "NL", "BE", "AU", "JP", "BR"};
using Texts = std::vector<std::string>;

uint32_t period_of(const tone_pattern &pattern) {
    uint32_t period = 0;
    for (uint32_t i = 0; i < pattern.count; i++)
        period += pattern.elements[i].ms;
    return period;
}

// The longest burst that any tone of the country has of these frequencies.
uint32_t longest_burst(const char *country, const tone_element &like) {
    uint32_t longest = 0;
    for (uint32_t i = 0; i < TONES; i++) {
        const tone_pattern other = tone_pattern_read(country_tone(country, static_cast<network_tone>(i))->text);
        for (uint32_t k = 0; k < other.count; k++)
            if (other.elements[k].first == like.first && other.elements[k].second == like.second)
                longest = std::max(longest, other.elements[k].ms);
    }
    return longest;
}

// When a tone must have been named, in ms.
uint32_t bound_of(const char *country, const tone_pattern &pattern) {
    const tone_element &last = pattern.elements[pattern.count - 1];
    return period_of(pattern) + 200 + (last.ms == 0 ? longest_burst(country, last) : 0);
}

} // namespace

class EveryCountry : public testing::TestWithParam<const char *> {};
INSTANTIATE_TEST_SUITE_P(SoundDetector, EveryCountry, testing::ValuesIn(kCodes),
                         [](const auto &info) { return std::string(info.param); });

TEST_P(EveryCountry, HasItsTonesNamedInTime) {
    for (uint32_t i = 0; i < TONES; i++) {
        const network_tone tone = static_cast<network_tone>(i);
        const tone_cell *cell = country_tone(GetParam(), tone);
        const tone_pattern pattern = tone_pattern_read(cell->text);
        const uint32_t bound = bound_of(GetParam(), pattern);
        SCOPED_TRACE(std::string(network_tone_word(tone)) + " " + cell->text);
        Heard heard(GetParam());
        heard.play(pattern);
        heard.run_until(network_tone_word(tone), bound);
        heard.run(1000);
        EXPECT_GT(heard.said(network_tone_word(tone)), 0);
        EXPECT_LE(heard.said(network_tone_word(tone)), static_cast<int>(bound));
        EXPECT_EQ(heard.said(""), -1) << "it is not over";
        // What is named in the end are this tone and its equals.
        std::string equals;
        for (uint32_t k = 0; k < TONES; k++)
            if (std::string(country_tone(GetParam(), static_cast<network_tone>(k))->text) == cell->text)
                equals += (equals.empty() ? "" : " or ") + std::string(network_tone_word(static_cast<network_tone>(k)));
        EXPECT_EQ(heard.last(), equals);
    }
}

class SomeCountries : public testing::TestWithParam<const char *> {};
INSTANTIATE_TEST_SUITE_P(SoundDetector, SomeCountries, testing::Values("DE", "US"),
                         [](const auto &info) { return std::string(info.param); });

TEST_P(SomeCountries, HaveTheirTonesNamedBesideAVoice) {
    for (uint32_t i = 0; i < TONES; i++) {
        const network_tone tone = static_cast<network_tone>(i);
        const tone_pattern pattern = tone_pattern_read(country_tone(GetParam(), tone)->text);
        const uint32_t bound = bound_of(GetParam(), pattern);
        SCOPED_TRACE(network_tone_word(tone));
        Heard heard(GetParam());
        heard.speak(1040);
        heard.run(1000);
        EXPECT_EQ(heard.all(), (Texts{"1040Hz"}));
        heard.play(pattern);
        heard.run_until(network_tone_word(tone), bound);
        EXPECT_GT(heard.said(network_tone_word(tone)), 1000);
        EXPECT_LE(heard.said(network_tone_word(tone)), static_cast<int>(1000 + bound));
        heard.stop();
        heard.run(2000);
        EXPECT_EQ(heard.said(""), -1) << "the voice goes on";
    }
}

// From the middle of a burst on, as over RTP from somebody who has been hearing it for longer.
TEST_P(EveryCountry, HasItsTonesNamedFromTheirMiddleOn) {
    for (const network_tone tone : {TONE_RINGING, TONE_BUSY, TONE_CONGESTION}) {
        const tone_pattern pattern = tone_pattern_read(country_tone(GetParam(), tone)->text);
        SCOPED_TRACE(network_tone_word(tone));
        Heard heard(GetParam());
        int16_t lost[kStepSamples];
        tone_player ahead = {};
        tone_player_start(&ahead, &pattern);
        for (uint32_t ms = 0; ms < pattern.elements[0].ms / 2; ms += kStepMs)
            tone_player_add(&ahead, lost, kStepSamples);
        for (uint32_t ms = 0; ms < std::max(3 * period_of(pattern) / 2, 3000u); ms += kStepMs) {
            int16_t samples[kStepSamples] = {};
            tone_player_add(&ahead, samples, kStepSamples);
            heard.take(samples);
        }
        EXPECT_GT(heard.said(network_tone_word(tone)), 0) << testing::PrintToString(heard.all());
    }
}

TEST_P(SomeCountries, HaveSilenceSaidWhenATonesPauseIsTooLong) {
    for (uint32_t i = 0; i < TONES; i++) {
        const tone_pattern pattern = tone_pattern_read(country_tone(GetParam(), static_cast<network_tone>(i))->text);
        const tone_element &last = pattern.elements[pattern.count - 1];
        const uint32_t pause = last.first == 0 ? last.ms : 0;
        if (pause > 5000) // longer ones are the same, and take longer
            continue;
        const uint32_t period = std::max(period_of(pattern), bound_of(GetParam(), pattern)) / kStepMs * kStepMs;
        SCOPED_TRACE(network_tone_word(static_cast<network_tone>(i)));
        Heard heard(GetParam());
        heard.play(pattern);
        heard.run(period + 1000);
        heard.stop();
        const uint32_t stopped = heard.now();
        const size_t before = heard.all().size();
        heard.run(pause + 1000);
        EXPECT_EQ(heard.last(), "") << testing::PrintToString(heard.all());
        EXPECT_LE(heard.said(""), static_cast<int>(stopped + pause + 1000));
        EXPECT_EQ(heard.all().size(), before + 1) << "and no other tone: " << testing::PrintToString(heard.all());
    }
}

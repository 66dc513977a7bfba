// SPDX-License-Identifier: MIT
/**
 * @file country_cases.h
 * What must be said of the tones of a country, and when.
 */
#pragma once

#include "country_tones.h"

#include <algorithm>
#include <string>

inline std::string tone_word(uint32_t tone) {
    return network_tone_word(static_cast<network_tone>(tone));
}

inline std::string tone_text(const char *country, uint32_t tone) {
    return country_tone(country, static_cast<network_tone>(tone))->text;
}

inline tone_pattern tone_of(const char *country, uint32_t tone) {
    return tone_pattern_read(tone_text(country, tone).c_str());
}

inline uint32_t period_of(const tone_pattern &pattern) {
    uint32_t period = 0;
    for (uint32_t i = 0; i < pattern.count; i++)
        period += pattern.elements[i].ms;
    return period;
}

/** The longest burst that any tone of the country has of these frequencies, ms. */
inline uint32_t longest_burst(const char *country, const tone_element &like) {
    uint32_t longest = 0;
    for (uint32_t tone = 0; tone < TONES; tone++) {
        const tone_pattern other = tone_of(country, tone);
        for (uint32_t i = 0; i < other.count; i++)
            if (other.elements[i].first == like.first && other.elements[i].second == like.second)
                longest = std::max(longest, other.elements[i].ms);
    }
    return longest;
}

/** Within how many ms a tone must be named: a period and 200 ms; a continuous tone, the longest burst and 200 ms. */
inline uint32_t bound_of(const char *country, uint32_t tone) {
    const tone_pattern pattern = tone_of(country, tone);
    const tone_element &last = pattern.elements[pattern.count - 1];
    return period_of(pattern) + 200 + (last.ms == 0 ? longest_burst(country, last) : 0);
}

/** What is said of a tone in the end: its own name, and those of its equals. */
inline std::string names_of(const char *country, uint32_t tone) {
    std::string names;
    for (uint32_t other = 0; other < TONES; other++)
        if (tone_text(country, other) == tone_text(country, tone))
            names += (names.empty() ? "" : " or ") + tone_word(other);
    return names;
}

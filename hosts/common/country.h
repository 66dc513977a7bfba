// SPDX-License-Identifier: MIT
/**
 * @file country.h
 * What a country decides for call logic and exchange lines: how telephones ring, and whom one calls in an emergency.
 *
 * How sure each value is, by a letter: A a national text was read; B the supplement of ITU-T E.180; C other makers'
 * tables; D general knowledge, not verified.
 */
#pragma once

#include <stdint.h>

constexpr uint32_t kCadenceWords = 4;

struct country_rules {
    char code[3];                    // ISO 3166
    uint32_t cadence[kCadenceWords]; // ring: milliseconds on and off in turn
    uint32_t cadence_words;          // of it
    char cadence_confidence;
    uint32_t ring_frequency; // Hz
    char frequency_confidence;
    const char *emergency; // numbers, a blank between two; all of confidence D
};

/** The rules of a country; null: it is none of those that are known. */
const country_rules *country_find(const char *code);
/** The same, or Germany's for a country that is not known. */
const country_rules *country_get(const char *code);
/** How long a ring and the pause behind it last, in ms: until the next one begins. */
uint32_t country_ring_ms(const country_rules *rules);
/** When the first ring is over, in ms: caller display follows. A double ring is one. */
uint32_t country_first_ring_ms(const country_rules *rules);
/** Whether the text stands in a list of numbers with blanks between them. */
bool number_is_listed(const char *list, const char *number);
/** Whether a number in the list begins with the text, and goes on behind it. */
bool number_may_be_listed(const char *list, const char *number);

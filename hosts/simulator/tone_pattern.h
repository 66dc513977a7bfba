// SPDX-License-Identifier: MIT
/**
 * @file tone_pattern.h
 * A tone of the network: which frequencies sound for how long, and its text form.
 *
 * The text is as tables of administrations write it: elements with a comma between them, played in turn and then anew.
 * An element is one frequency, or two that sound together (`350+440`), or one that another modulates (`400*16`, fully);
 * 0 is silence. `@` and a number make it louder or softer than -13 dBm0 by so many dB. `/` and a number say for how many
 * ms; without that it does not end. `!` before the first elements: these are played once, and not again. `425/480,0/480`
 * is a busy tone, `!425/100,!0/100,425` a dial tone with a gap at its begin.
 */
#pragma once

#include <stdint.h>

constexpr uint32_t kToneElements = 64;
constexpr uint32_t kToneHighest = 3400;  // Hz, what a telephone line carries
constexpr uint32_t kToneLongest = 60000; // ms
constexpr int32_t kToneLevel = -130;     // tenths of dBm0, of each frequency
constexpr int32_t kToneLoudest = 31, kToneSoftest = -600;

/** A part of a tone. */
struct tone_element {
    uint32_t first, second; // Hz; second 0: one frequency; both 0: silence
    bool modulates;         // second modulates first, instead of sounding with it
    int32_t level;          // tenths of dBm0, of each frequency
    uint32_t ms;            // 0: it does not end
};

struct tone_pattern {
    tone_element elements[kToneElements];
    uint32_t count; // 0: no tone
    uint32_t again; // the first element that is repeated: those before it are played once
};

/** Reads a number of at most five figures. @return where it ends; null: there is none */
constexpr const char *tone_number_read(const char *text, uint32_t *number) {
    uint32_t figures = 0;
    *number = 0;
    for (; *text >= '0' && *text <= '9' && figures < 6; text++, figures++)
        *number = *number * 10 + static_cast<uint32_t>(*text - '0');
    return figures == 0 || figures == 6 ? nullptr : text;
}

/** Reads one element. @return where it ends; null: it is none */
constexpr const char *tone_element_read(const char *text, tone_element *element) {
    *element = {0, 0, false, kToneLevel, 0};
    text = tone_number_read(text, &element->first);
    if (text != nullptr && (*text == '+' || *text == '*')) {
        element->modulates = *text == '*';
        text = tone_number_read(text + 1, &element->second);
        if (element->second == 0)
            return nullptr;
    }
    if (text != nullptr && *text == '@') {
        const bool softer = text[1] == '-';
        uint32_t by = 0;
        text = tone_number_read(text + 1 + softer, &by);
        element->level += softer ? -static_cast<int32_t>(10 * by) : static_cast<int32_t>(10 * by);
    }
    if (text != nullptr && *text == '/') {
        text = tone_number_read(text + 1, &element->ms);
        if (element->ms == 0 || element->ms > kToneLongest)
            return nullptr;
    }
    const bool is_carried = element->first <= kToneHighest && element->second <= kToneHighest &&
                            (element->second == 0 || element->first > 0) && element->level <= kToneLoudest &&
                            element->level >= kToneSoftest;
    return is_carried ? text : nullptr;
}

/** Reads the text form. @return an empty pattern when it is none: more elements than there is room for, a number out of
 *  its range, an element that does not end before another one, nothing that is repeated, nothing but silence */
constexpr tone_pattern tone_pattern_read(const char *text) {
    tone_pattern pattern = {};
    bool sounds = false;
    while (pattern.count < kToneElements) {
        tone_element *element = &pattern.elements[pattern.count];
        if (*text == '!') {
            if (pattern.again != pattern.count)
                return {};
            pattern.again++;
            text++;
        }
        text = tone_element_read(text, element);
        if (text == nullptr)
            return {};
        pattern.count++;
        sounds = sounds || element->first > 0;
        if (*text == 0)
            return sounds && pattern.again < pattern.count ? pattern : tone_pattern{};
        if (*text++ != ',' || element->ms == 0)
            return {};
    }
    return {};
}

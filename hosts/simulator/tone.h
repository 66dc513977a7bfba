// SPDX-License-Identifier: MIT
/**
 * @file tone.h
 * A generator of a tone, and a detector that names the tones in what it is given.
 */
#pragma once

#include "sampling_clock.h"

/** A sine without a jump between frames. */
struct tone_generator {
    uint32_t frequency; // Hz
    uint32_t phase;     // samples since its start, within one second
};

/** The next samples of a tone, at about -10 dBm0. */
void tone_generator_next(tone_generator *generator, int16_t *samples, uint32_t count);

constexpr uint32_t kDetectorStep = 20; // Hz; voices are told apart that are multiples of it
constexpr uint32_t kDetectorLowest = 300;
constexpr uint32_t kDetectorHighest = 3400;
constexpr uint32_t kNetworkTones[] = {350, 425, 450, 950, 1800}; // Hz; and these, which networks play
constexpr uint32_t kDetectorSamples = 800;                       // 100 ms are examined at once
constexpr uint32_t kDetectorSkipped = 800;                       // after as many that are not
constexpr uint32_t kDetectorTones = 4;                           // and so many told apart

struct tone_detector {
    int16_t samples[kDetectorSamples];
    uint32_t used; // of samples, and of those that were skipped
};

/** Takes more samples. @return whether they are enough for tone_detector_find(). */
bool tone_detector_listen(tone_detector *detector, const int16_t *samples, uint32_t count);
/** Finds the frequencies in what it was given, from the lowest on, and begins anew. @return how many */
uint32_t tone_detector_find(tone_detector *detector, uint32_t frequencies[kDetectorTones]);
/** Writes "440Hz", "440Hz+620Hz" or "" */
void tone_frequencies_write(const uint32_t *frequencies, uint32_t count, char *text, uint32_t size);

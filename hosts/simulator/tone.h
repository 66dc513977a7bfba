// SPDX-License-Identifier: MIT
/**
 * @file tone.h
 * A tone for a mouth, and an ear that names the tones it hears.
 */
#pragma once

#include <stdint.h>

constexpr uint32_t kSampleRate = 8000;
constexpr uint32_t kFrameSamples = 160; // 20 ms

/** A sine without a jump between frames. */
struct tone {
    uint32_t frequency; // Hz
    uint32_t phase;     // samples since its start, within one second
};

/** The next samples of a tone, at about -10 dBm0. */
void tone_next(tone *tone, int16_t *samples, uint32_t count);

constexpr uint32_t kEarStep = 20; // Hz; the ear tells tones apart that are multiples of it
constexpr uint32_t kEarLowest = 300;
constexpr uint32_t kEarHighest = 1700;
constexpr uint32_t kEarSamples = 1600; // it listens for 200 ms
constexpr uint32_t kEarTones = 4;      // and tells so many apart

struct ear {
    int16_t samples[kEarSamples];
    uint32_t used;
};

/** Listens to more samples. @return whether it has heard enough for ear_name(). */
bool ear_listen(ear *ear, const int16_t *samples, uint32_t count);
/** Writes "440Hz", "440Hz+620Hz" or "" and starts to listen anew. */
void ear_name(ear *ear, char *text, uint32_t size);

// SPDX-License-Identifier: MIT
/**
 * @file country_detector.h
 * Recognises the tones of a country in samples, by frequency and cadence.
 *
 * tone_filters.h finds the frequencies, tone_purity.h whether they are a tone's, tone_burst.h when they sound, cadence.h which
 * tones that may be; here it is decided which it is: as soon as only one explains all that was heard, and it can be no other
 * one that was cut off, nor a piece of speech; at the latest 160 ms after a period of its cadence, and then all that it may
 * still be. A tone in the long pause of another one takes that one's place.
 */
#pragma once

#include "cadence.h"
#include "network_tones.h"
#include "tone_burst.h"
#include "tone_pattern.h"

constexpr uint32_t kCadences = TONES + 1; // the last one is a list that the application has made
constexpr uint32_t kSounds = 64;
constexpr uint32_t kLoudnessSteps = 128; // 1.28 s

struct country_detector {
    tone_filters filters;
    tone_sound sounds[kSounds];
    tone_burst bursts[kSounds];
    uint32_t sound_count;
    cadence cadences[kCadences];
    cadence_match matches[kCadences];
    float loudness[kLoudnessSteps]; // of all sound, in the newest steps in turn
    uint32_t found;                 // tones that are heard, by bit
    double found_first;             // ms, when they began
    double found_burst;             // ms, when the newest of their bursts began
};

/** Learns the tones of a country, and a list besides (null: none), and has heard nothing. A tone is not recognised that
 *  has more frequencies or bursts than there is room for, as a long list may have. */
void country_detector_learn(country_detector *detector, const char *country, const tone_pattern *list);
/** Forgets all that was heard. */
void country_detector_forget(country_detector *detector);
/** Hears kStepSamples; `found` is what they make of it. */
void country_detector_take(country_detector *detector, const int16_t *samples);
/** ms that it has heard. */
double country_detector_now(const country_detector *detector);
/** Whether one of the country's frequencies sounds. */
bool country_detector_sounds(const country_detector *detector);
/** Whether what was heard may be, or become, a tone. */
bool country_detector_follows(const country_detector *detector);
/** Whether a frequency was that of one of the country's sounds, or may have been, in the last 250 ms. */
bool country_detector_hears(const country_detector *detector, uint32_t frequency);

/** How soft and how loud all sound was between two moments, in ms, as far as that is still known: in the last second. */
struct loudness_range {
    float least, most;
};
loudness_range country_detector_loudness(const country_detector *detector, double from, double until);
/** Decides what is found; for country_detector_take(). */
void country_tones_decide(country_detector *detector);

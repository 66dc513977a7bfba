// SPDX-License-Identifier: MIT
/**
 * @file sound_detector.h
 * Says what is heard on a line: the tones of a country by frequency and cadence, and voices by frequency.
 *
 * What does it do?
 *   A tone is named as soon as the samples tell it from every other tone of the country, and at the latest a period of
 *   its cadence and 200 ms after its begin; a continuous tone after the longest burst of its frequencies and 200 ms. Tones
 *   that are equal are named together, as "busy-tone or congestion-tone"; so are those that differ only later, and again
 *   when that has been heard. A voice is named by its frequencies, as "1000Hz", or "1000Hz+2200Hz" of several. Silence is
 *   said when there has been neither for 200 ms, and no pause of a tone can be what is heard.
 *
 * How does it work?
 *   Only samples count: nobody tells it what has been ordered. country_detector.h finds tones, tone.h finds voices. A
 *   frequency of the country that its own sounds have is no voice, until its bursts have been no tone three times.
 */
#pragma once

#include "country_detector.h"
#include "tone.h"

constexpr uint32_t kHeardBytes = 256;

struct sound_detector {
    country_detector tones;
    char country[3];
    char list_name[20]; // of the last list
    double sounded;     // ms, when a frequency of the country was last there
    bool followed;      // bursts might become a tone
    uint32_t missed;    // times in a row that they did not
    tone_detector voice;
    char candidate[48];     // voices that were found once
    char voices[48];        // and twice: they are heard
    char said[kHeardBytes]; // what was said last; "": silence
    uint32_t idle;          // steps without anything
};

/** Learns the tones of a country, and has heard nothing. */
void sound_detector_begin(sound_detector *detector, const char *country);
/** Learns a list of tones by a name, in place of the list before, and has heard nothing. */
void sound_detector_set_list(sound_detector *detector, const char *name, const tone_pattern *list);
/** Forgets all that was heard. */
void sound_detector_forget(sound_detector *detector);
/** Forgets the voices only: they are said again. */
void sound_detector_forget_voices(sound_detector *detector);
/** Hears kStepSamples. @return whether there is something new, which `said` says */
bool sound_detector_take(sound_detector *detector, const int16_t *samples);
/** Whether nothing was heard that could become or end something. */
bool sound_detector_is_idle(const sound_detector *detector);

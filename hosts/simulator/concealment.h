// SPDX-License-Identifier: MIT
/**
 * @file concealment.h
 * Sound in place of what is missing: the last pitch period again and again, fading away within 60 ms (like ITU-T G.711
 * Appendix I). And where sound is like itself, which is where some of it can be left out or played twice.
 */
#pragma once

#include <stdint.h>

constexpr uint32_t kShortestPeriod = 40; // samples: 200 Hz
constexpr uint32_t kLongestPeriod = 160; // 50 Hz
constexpr uint32_t kPlayedSamples = 320; // enough to compare two of the longest
constexpr uint32_t kFadeFrom = 80;       // 10 ms
constexpr uint32_t kFadeEnd = 480;       // 60 ms
constexpr uint32_t kJoinSamples = 40;    // two sounds are joined by a slope of 5 ms

struct concealment {
    int16_t played[kPlayedSamples]; // the newest last
    int16_t period[kLongestPeriod]; // what is repeated
    uint32_t length;                // of it
    uint32_t missing;               // samples since the gap began; 0: there is none
    uint32_t joining;               // samples of the slope that are still to come
};

/** The sample after those played, in a gap. */
int16_t concealment_next(concealment *gap);
/** A sample that is there: as it is, but joined to the concealed ones right behind a gap. */
int16_t concealment_join(concealment *gap, int16_t sample);
/** Notes what was played. */
void concealment_note(concealment *gap, const int16_t *samples, uint32_t count);

/** The distance, kShortestPeriod to `longest`, at which the kJoinSamples at `samples` are most like others: those
 *  `direction` times the distance away. */
uint32_t period_find(const int16_t *samples, int32_t direction, uint32_t longest);
/** A part of a slope from one sound to another: `step` of kJoinSamples. */
int16_t samples_join(int16_t from, int16_t to, uint32_t step);

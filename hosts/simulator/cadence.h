// SPDX-License-Identifier: MIT
/**
 * @file cadence.h
 * A tone as a run of bursts, and how far what is heard goes with it.
 *
 * A burst that has begun may be any burst of the tone: each place in the tone where it would fit is kept, and given up
 * when a burst or a pause is too short or too long for it. A place that was reached from the first burst of the tone on
 * is exact; any other one was entered in the middle. A place is credible at once, if it is exact; if it was entered in the
 * middle, if somebody spoke in a pause, or if its first bursts were those of a tone that has ended, when enough bursts and
 * pauses have been as long as they should.
 */
#pragma once

#include <stdint.h>

constexpr uint32_t kBursts = 32;

struct cadence_burst {
    uint32_t sound;             // which one
    uint32_t ms;                // how long it sounds; 0: it does not end
    uint32_t gap_ms;            // and how long the pause behind it is
    int32_t level;              // tenths of a dB; only how bursts of a tone differ counts
    uint32_t ms_near, gap_near; // by how much either may differ
};

struct cadence {
    cadence_burst bursts[kBursts];
    uint32_t count;     // 0: the tone is not known
    uint32_t again;     // the first burst that is repeated
    uint32_t period_ms; // from a first burst to the next one; of a continuous tone 0
};

struct cadence_place {
    bool alive, exact;
    uint32_t needs;   // so many bursts and pauses that are as long as they should make it credible
    uint32_t matched; // and so many were
    uint32_t before;  // the burst before this one; kBursts: it is the first that was heard
    double first;     // when the first of them began, ms
};

struct cadence_match {
    bool sounds;  // a burst of it; else a pause
    double since; // ms
    double begun; // ms, when its newest burst began
    double own;   // ms, the same of the newest one that was not too long for it
    float level;  // amplitude of the last burst that has ended
    bool alone;   // it was most of what was to be heard
    cadence_place places[kBursts];
};

/** Says how finely cadences must be told apart: by how much a burst or a pause may differ from its length. */
void cadences_part(cadence *cadences, uint32_t count);
bool cadence_is_equal(const cadence *one, const cadence *other);

/** A burst of a sound has begun, or ended, at a moment. @param level  its amplitude @param calm  the sound in the pause
 *  before it was steady, if there was any @param alone  the burst was most of what was to be heard */
void cadence_begin(cadence_match *match, const cadence *tone, uint32_t sound, double moment, bool calm);
void cadence_end(cadence_match *match, const cadence *tone, uint32_t sound, double moment, float level, bool alone);
/** Gives up what has lasted for too long. @param quiet  nothing has begun that is not told yet */
void cadence_check(cadence_match *match, const cadence *tone, double now, bool quiet);
/** The bursts that began until a moment were those of another tone: what begins with one of them is credible only when what
 *  comes now matches too. */
void cadence_doubt(cadence_match *match, const cadence *tone, double until);
bool cadence_place_is_credible(const cadence_place *place);
/** Whether the newest burst, if it began after a moment, may belong to a place that is exact but not credible yet. */
bool cadence_may_become(const cadence_match *match, const cadence *tone, double since);

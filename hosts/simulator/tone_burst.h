// SPDX-License-Identifier: MIT
/**
 * @file tone_burst.h
 * Finds when frequencies that belong together sound, and when they do not: bursts, with their begins and ends.
 */
#pragma once

#include "tone_filters.h"

/** Frequencies that sound together. */
struct tone_sound {
    uint32_t first, second; // filters; second kFilters: there is none
    uint32_t side;          // filter of the side band, when the first one is modulated; kFilters: it is not
    uint64_t near, far;     // filters that must be silent beside them, by bit: as near as 30 Hz, and as 100 Hz
};

enum tone_burst_state {
    BURST_NONE,
    BURST_RISING, // something begins
    BURST_SOUNDS, // it is this sound
    BURST_OTHER,  // it is another one, whose frequency is near
};

struct tone_burst {
    tone_burst_state state;
    float levels[2 * kEnvelopeSlots]; // the newest, by the number of their slot
    float level;                      // the loudest of the burst
    float loudness;                   // of all sound meanwhile, where it was loudest
    uint32_t slots;                   // since it rose
    uint32_t soft;                    // slots in a row that were too soft
    uint32_t doubts;   // that it is still this sound: 2 for each time that the frequencies were not right
    double begin, end; // in slots, finer than one
    uint64_t newest;   // slot in which it may have been this sound
};

/** What a slot has brought. A short burst brings both at once. */
struct tone_burst_news {
    bool begins, ends; // at the burst's begin and end
};

/** Makes a sound of frequencies. @param second  0: none; it modulates the first, or sounds with it. @return no: filters
 *  are missing */
bool tone_sound_make(tone_sound *sound, tone_filters *filters, uint32_t first, uint32_t second, bool modulates);
/** Says which filters must be silent beside a sound; for when all filters are there. */
void tone_sound_part(tone_sound *sound, const tone_filters *filters);
bool tone_sound_is_equal(const tone_sound *one, const tone_sound *other);

/** Looks at the slot that the filters have just taken. */
tone_burst_news tone_burst_take(tone_burst *burst, const tone_sound *sound, const tone_filters *filters);

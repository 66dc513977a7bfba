// SPDX-License-Identifier: MIT
/**
 * @file tone_filters.h
 * Filters for the frequencies that a tone detector knows, side by side.
 *
 * Each 5 ms of sound become one complex number for each frequency: the sound, turned down by it. All that is asked later
 * is a sum of some of them, so that a burst can be measured finely in time and its frequency finely as well.
 */
#pragma once

#include "sampling_clock.h"

constexpr uint32_t kFilters = 48;     // at most; a multiple of 4, so that no sample needs a remainder
constexpr uint32_t kSlotSamples = 40; // 5 ms
constexpr uint32_t kSlotMs = 5;
constexpr uint32_t kSlotsKept = 32;
constexpr uint32_t kEnvelopeSlots = 8; // 40 ms, through which the envelope is seen

struct tone_filters {
    uint32_t frequency[kFilters]; // Hz
    uint32_t count;
    uint64_t slots; // taken since the begin
    float cosine[kSlotSamples][kFilters], sine[kSlotSamples][kFilters];
    float real[kSlotsKept][kFilters], imaginary[kSlotsKept][kFilters]; // the newest slots, by their number
    float power[kSlotsKept];                                           // of all sound: its mean square
    float envelope[kFilters];                                          // amplitude of each frequency now
    float loudness; // amplitude that a sine of the power of all sound has, now
};

/** Looks for nothing. */
void tone_filters_begin(tone_filters *filters);
/** Forgets what was taken: there was silence. */
void tone_filters_forget(tone_filters *filters);
/** Adds a frequency, unless it is there. @return its filter; kFilters: there is no room */
uint32_t tone_filters_add(tone_filters *filters, uint32_t frequency);
/** Takes the next kSlotSamples. */
void tone_filters_take(tone_filters *filters, const int16_t *samples);
/** Where the slot stands that was taken so many slots before the newest one. */
uint32_t tone_filters_slot(const tone_filters *filters, uint32_t back);
/** The amplitude of a filter's frequency, and no other that is further away than a turn in this time, in the newest
 *  slots. @param count  at most kSlotsKept; `skipped` slots behind them are left out */
float tone_filters_amplitude(const tone_filters *filters, uint32_t filter, uint32_t count, uint32_t skipped);

// SPDX-License-Identifier: MIT
/**
 * @file tone_purity.h
 * Tells a tone from what only has some of its frequency: noise, speech, keys, a modem.
 *
 * The slots of a filter are taken apart by frequency once more. A tone stands alone there, with its partner or its side
 * bands and at most one other frequency, which may be a voice of the simulators; noise and speech are everywhere.
 */
#pragma once

#include "tone_burst.h"

/** Whether each frequency of a sound is a pure one in the newest slots. @param count  at most kSlotsKept; `skipped` slots
 *  behind them are left out */
bool tone_is_pure(const tone_sound *sound, const tone_filters *filters, uint32_t count, uint32_t skipped);

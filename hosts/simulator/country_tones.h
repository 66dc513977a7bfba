// SPDX-License-Identifier: MIT
/**
 * @file country_tones.h
 * The tones of the network in 13 countries, in one table.
 *
 * How sure a cell is, by its letter: A a national text was read; B the supplement of ITU-T E.180; C other makers'
 * tables; D general knowledge. Where sources differ the first one stands there, marked as disputed.
 */
#pragma once

#include "tone_pattern.h"

enum network_tone {
    TONE_DIAL,
    TONE_RINGING,
    TONE_BUSY,
    TONE_CONGESTION,
    TONE_CALL_WAITING,
    TONE_SPECIAL_INFORMATION,
    TONES, // how many there are
};

struct tone_cell {
    const char *text; // tone_pattern.h
    char confidence;
    bool is_disputed;
};

/** "dial", "ringing" and so on. */
const char *network_tone_name(network_tone tone);
/** The tone that a signal orders (LIBVOICE_SIGNAL_cg_dt and its like); TONES: none of these. */
network_tone network_tone_of(uint32_t signal);
/** The cell of a country; Germany's for a country that is not known. */
const tone_cell *country_tone(const char *country, network_tone tone);
/** Whether the cell was neither read in a national text nor in E.180's supplement, or is disputed. */
bool tone_cell_is_unproved(const tone_cell *cell);

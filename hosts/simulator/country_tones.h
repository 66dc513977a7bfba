// SPDX-License-Identifier: MIT
/**
 * @file country_tones.h
 * The tones of the network in 13 countries, in one table.
 *
 * How sure a cell is, by its letter: A a national text was read; B the supplement of ITU-T E.180; C other makers'
 * tables; D general knowledge. Where sources differ the first one stands there, marked as disputed. Tones that no table
 * has by country are the same in all.
 */
#pragma once

#include "network_tones.h"
#include "tone_pattern.h"

struct tone_cell {
    const char *text; // tone_pattern.h
    char confidence;
    bool is_disputed;
};

/** The cell of a country; Germany's for a country that is not known. */
const tone_cell *country_tone(const char *country, network_tone tone);
/** Whether the country's tones are known. */
bool country_has_tones(const char *country);
/** Whether the cell was neither read in a national text nor in E.180's supplement, or is disputed. */
bool tone_cell_is_unproved(const tone_cell *cell);

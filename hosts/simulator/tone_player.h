// SPDX-License-Identifier: MIT
/**
 * @file tone_player.h
 * Plays a tone of the network as sound.
 */
#pragma once

#include "tone_pattern.h"

struct tone_player {
    tone_pattern pattern; // count 0: nothing is played
    uint32_t element;
    uint32_t played; // samples of the element
    uint32_t gap;    // samples of silence before this one or the next one begins
};

/** Begins a tone in place of the one before. Behind the last sound of that one there are at least 80 ms of
 *  silence, as an exchange needs to switch: nobody could tell two tones of one frequency apart without. */
void tone_player_start(tone_player *player, const tone_pattern *pattern);
void tone_player_stop(tone_player *player);
/** Adds the next samples of the tone to a mix, if one is played. */
void tone_player_add(tone_player *player, int16_t *mix, uint32_t count);

// SPDX-License-Identifier: MIT
/**
 * @file tone_list.h
 * The list of tones that LIBVOICE_SIGNAL_tonegen_pt orders, as a tone of the network.
 */
#pragma once

#include "line_driver.h"
#include "tone_pattern.h"

constexpr uint32_t kListTones = 32;

/**
 * Makes a pattern of a list: each tone at its own level, then its pause and the one between two tones of the list, then
 * from the begin again. A frequency of 0 is a pause itself.
 * @param pause_ms  between two tones of the list
 * @return null; or why it cannot be played, as a sentence without its subject, valid until the next call
 */
const char *tone_list_read(const voice_tone_t *list, uint32_t count, int32_t pause_ms, tone_pattern *pattern);

// SPDX-License-Identifier: MIT
/**
 * @file network_tones.h
 * The tones of the network that an application can order by a signal, and what they are called.
 */
#pragma once

#include <stdint.h>

enum network_tone {
    TONE_DIAL,
    TONE_RINGING,
    TONE_BUSY,
    TONE_CONGESTION,
    TONE_SPECIAL_INFORMATION,
    TONE_WARNING,
    TONE_PAYPHONE,
    TONE_CALL_WAITING,
    TONE_CALLER_WAITING,
    TONE_CONFIRMATION,
    TONE_HELD,
    TONE_MESSAGE_WAITING,
    TONES, // how many there are
};

/** "dial", "ringing" and so on, before the word tone. */
const char *network_tone_name(network_tone tone);
/** "dial-tone", "ring-back" and so on, as a telephone says what it hears. */
const char *network_tone_word(network_tone tone);
/** The tone that a signal orders (LIBVOICE_SIGNAL_cg_dt and its like); TONES: none of these. */
network_tone network_tone_of(uint32_t signal);
/** The tone with a word as above; TONES: none. */
network_tone network_tone_find(const char *word);

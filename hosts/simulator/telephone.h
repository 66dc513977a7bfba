// SPDX-License-Identifier: MIT
/**
 * @file telephone.h
 * A simulated telephone behind the interface of a line driver (line_driver.h).
 *
 * What does it do?
 *   It rings, displays, plays tones and speaks a voice of its own over RTP, and says what its user hears and sees, one
 *   line each, led by the telephone's number: "1 hears dial-tone", "1 rings". What is heard is what the samples say.
 *
 * How does it work?
 *   telephone_driver() is a whole table. A kind of line that differs in something (a handset, an exchange line) copies
 *   it and replaces operations. The user's acts are functions, which report them.
 */
#pragma once

#include "audio.h"

struct telephone {
    line_t *line;
    int number; // as the text interface calls it, from 1
    bool off_hook;
    bool ringing;
    uint32_t plays;      // the signal of the tone that was ordered last
    kex_timer_t *splash; // ends one short ring; null: none runs
    audio sound;         // what is spoken, and what is heard
    // Parameters that the application can set or ask for: see telephone_parameters.h.
    char name[51];              // of this telephone, for a display of its own
    int32_t gain, receive_gain; // dB
    int32_t handset_type;       // of a cordless handset; -1: none
};

/** What a telephone can do; the pointer that its operations get is that of a telephone. */
line_driver_t telephone_driver();

/** Makes a telephone of a line. @param frequency  Hz, of telephone 1's voice; each next one has 40 Hz more, the sixth
 *  that of the first again */
void telephone_begin(telephone *one, line_t *line, uint32_t frequency);

/* What the user does. Each reports it and answers null, or why it cannot be done now. */
const char *telephone_lift(telephone *one);
const char *telephone_hang_up(telephone *one);
const char *telephone_flash(telephone *one);

/** Says what happens on the line, as "1 off hook", and tells it to the sinks of its sound. */
__attribute__((format(printf, 2, 3))) void telephone_tell(const telephone *one, const char *format, ...);

/* Operations that others are made of. */
const char *telephone_display(void *line, const line_display_t *display);
/** Ends ringing, if it rings. */
void telephone_stop_ringing(telephone *one);

/** What it hears now: "dial-tone", "440Hz", "silence". */
const char *telephone_hears(const telephone *one);
/** Lets one short ring go on until it is stopped, if it rings so. */
void telephone_stop_splash(telephone *one);
/** The telephone whose one short ring a timer ends; null: none. */
telephone *telephone_of_splash(const kex_timer_t *timer);

/** "1 off hook, hears dial-tone" for the status command. */
void telephone_answer_status(const telephone *one);

/** A voice of its own for each plugin of telephones, by the figure at the end of its name: 1000 Hz for fxs1, 2200 Hz for
 *  fxs2, 2400 and 2600 Hz. No voice is a tone of any country, and no two are the sum that a key has. */
uint32_t voice_of_plugin(const char *name);
/** The same for one of exchange lines: 3000 Hz for fxo1, 3200 Hz for fxo2. */
uint32_t voice_of_exchange(const char *name);

// SPDX-License-Identifier: MIT
/**
 * @file telephone.h
 * A simulated telephone: what stands for the hardware that a driver drives. fxs_plugin and dect_plugin share it.
 *
 * It says what its user hears and sees, one line each, led by the telephone's number: "1 hears dial-tone", "1 rings".
 */
#pragma once

#include "audio.h"
#include "message.h"

struct telephone {
    int number;       // as the text interface calls it, from 1
    int32_t endpoint; // -1: not registered
    bool off_hook;
    bool ringing;
    char tone[64]; // what is played into the receiver; empty: nothing
    audio sound;   // what is spoken, and what comes from others
    // Parameters that the application can set or ask for.
    char name[51]; // of this telephone, for a display of its own
    int32_t gain, receive_gain;
    int32_t handset_type; // of a cordless handset; -1: none
};

/** Gives the telephones their numbers and their tones: the first has `frequency`, each next one 40 Hz more. */
void telephones_start(kex_t *bus, telephone *phones, int count, uint32_t frequency);
int telephone_count();
telephone *telephone_at(int index);
/** The registered telephone of an endpoint number, or null. */
telephone *telephone_of_endpoint(int32_t endpoint);

/** Does what a signal says. @return whether it could. */
bool telephone_signal(telephone *phone, libvoice_signal_t *message);
/** Back to silence, without tone and ringing. */
void telephone_silence(telephone *phone);

/* What the user does. Each reports it to the application and answers null, or why it cannot be done now. */
const char *telephone_lift(telephone *phone);
const char *telephone_hang_up(telephone *phone);
const char *telephone_flash(telephone *phone);

/** Reports "off hook" as the state found at start, not as something that happens now. */
void telephone_report_off_hook(const telephone *phone);
/** Sends an event without parameters, if the telephone is registered. */
void telephone_event(const telephone *phone, uint32_t event);
/** "1 off hook, hears dial-tone" for the status command. */
void telephone_answer_status(const telephone *phone);

/** A tone of its own for each plugin of a kind, by the figure at the end of its name: 400 Hz for fxs1, 600 Hz for fxs2.
 */
uint32_t tone_of_plugin(const char *name);

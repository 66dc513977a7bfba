// SPDX-License-Identifier: MIT
/**
 * @file telephone.h
 * A simulated telephone: what stands for the hardware that a driver drives. fxs_plugin and dect_plugin share it.
 *
 * It says what its user hears and sees, one line each, led by the telephone's number: "1 hears dial-tone", "1 rings".
 */
#pragma once

#include "message.h"

constexpr uint32_t kAppearances = 2; // calls that one telephone can have at a time: the active and the held one

struct telephone {
    int number;       // as the text interface calls it, from 1
    int32_t endpoint; // -1: not registered
    bool off_hook;
    bool ringing;
    char tone[64]; // what is played into the receiver; empty: nothing
};

/** Does what a signal says. @return whether it could. */
bool telephone_signal(telephone *phone, libvoice_signal_t *message);
/** Back to silence, without tone and ringing. */
void telephone_silence(telephone *phone);

/* What the user does. Each reports it to the application and answers null, or why it cannot be done now. */
const char *telephone_lift(telephone *phone);
const char *telephone_hang_up(telephone *phone);

/** Reports "off hook" as the state found at start, not as something that happens now. */
void telephone_report_off_hook(const telephone *phone);
/** Sends an event without parameters, if the telephone is registered. */
void telephone_event(const telephone *phone, uint32_t event);
/** "1 off hook, hears dial-tone" for the status command. */
void telephone_answer_status(const telephone *phone);

// SPDX-License-Identifier: MIT
/**
 * @file calls.h
 * Calls between two lines: how they begin, are answered, and end.
 *
 * What does it do? A `call` has two parties, the caller first. Each is a line in one of its two appearances.
 * How does it work? A call is made when a number is complete (dialling.h) or an exchange line rings (exchange.h). It rings
 * (ringing.h), is answered here, can be held or joined with another one (hold.h), and ends here.
 */
#pragma once

#include "lines.h"

constexpr uint32_t kCalls = 16;

/** One side of a call. */
struct party {
    line *who;
    uint32_t appearance;
    uint16_t port;   // of its media socket; 0: no media
    uint32_t stream; // in its line's conference; 0: plain media
};

enum call_state { CALL_RINGING, CALL_TALKING, CALL_HELD };

struct call {
    party from, to;
    line *holder;       // held: by whom
    kex_timer_t *timer; // for the display between two rings, then for nobody answering
    uint32_t id;
    call_state state;
    voice_codec_t codec;
    char from_number[kNumberBytes]; // what the callee's display shows
    char from_name[kDisplayNameBytes];
    char to_text[kNumberBytes]; // as dialled
    bool used;
    bool displayed; // the caller, to the callee
};

extern call calls[kCalls];

/** "101->201" */
const char *call_text(const call *call);
party *party_of(call *call, const line *line);
party *other_party(call *call, const line *line);

/** A call from the caller's active appearance; null: there are too many. */
call *new_call(line *from, line *to, const char *to_text, const voice_codec_t *codec);
/** Says that a call does not come about. */
void say_refused_call(const line *from, const char *to_text, const char *why);
/** The same, and the caller hears a tone. */
void refuse_call(line *from, const char *to_text, uint32_t tone, const char *why);
/** The call is answered: both lines talk. */
void talk(call *call);
/** Ends a call: by the line that leaves it, or by null. Its other lines learn it. */
void end_call(call *call, line *leaving, const char *why);

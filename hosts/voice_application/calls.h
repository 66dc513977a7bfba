// SPDX-License-Identifier: MIT
/**
 * @file calls.h
 * Calls between two lines: how they begin, are answered, and end.
 *
 * What does it do? A `call` has two parties, the caller first. Each is a line in one of its two appearances.
 * How does it work? A call is made when a number is complete (dialling.h) or an exchange line rings (exchange.h). It
 * rings (ringing.h), is answered here, can be held or joined with another one (hold.h), and ends here.
 */
#pragma once

#include "lines.h"

constexpr uint32_t kCalls = 16;

/** A line's part in a call. */
struct party {
    line *who;
    uint32_t appearance;
    uint16_t port;           // of its media socket; 0: no media
    uint32_t stream;         // in its line's conference; 0: plain media
    uint32_t media_failures; // how often it could not open its sockets since media was wanted
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
const char *call_text(const call *it);
party *party_of_line(call *it, const line *who);
party *party_opposite(call *it, const line *who);

/** A call from the caller's active appearance; null: there are too many. */
call *call_begin(line *from, line *to, const char *to_text, const voice_codec_t *codec);
/** Says that a call does not come about. */
void call_say_rejected(const line *from, const char *to_text, const char *why);
/** The same, and the caller hears a tone. */
void call_reject(line *from, const char *to_text, uint32_t tone, const char *why);
/** Begins a call with a codec that both offer. @return null: there is none, or no room; the caller hears it. */
call *call_place(line *from, line *to, const char *digits);
/** The call is answered: both lines talk. */
void call_answer(call *it);
/** Ends a call: `leaving` is the line that left it, or null. The other lines learn it. */
void call_end(call *it, line *leaving, const char *why);

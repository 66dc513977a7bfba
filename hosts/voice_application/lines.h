// SPDX-License-Identifier: MIT
/**
 * @file lines.h
 * The lines that plugins registered: their state, and what is sent to them.
 *
 * What does it do? A `line` is one registered endpoint. Its state says what its user hears or does now; every change is
 * said.
 * How does it work? `lines` has a place for each endpoint number of the library. Nothing here waits for a plugin: a
 * signal is sent and the state changes at once.
 */
#pragma once

#include "plan.h"
#include "voice_records.h"

constexpr uint32_t kAppearances = 2; // calls per line: the active and the held one

enum line_state {
    LINE_IDLE,
    LINE_DIAL_TONE,
    LINE_COLLECTING, // digits
    LINE_CALLING,    // hears ring-back
    LINE_RINGING,
    LINE_TALKING,
    LINE_HELD, // by the other party
    LINE_BUSY, // off hook without a call: hears busy tone or the like until it is put back
};

struct call;

/** One registered endpoint: a telephone, a handset, or a line to the exchange. Its place in `lines` is its endpoint
 * number. */
struct line {
    bool used;
    bool reachable; // false while its plugin's connection has closed: nothing is sent any more
    bool off_hook;
    bool away;         // a handset that does not answer its base
    bool rings_in;     // an exchange line that the exchange rings: it is no line for calls that go out
    bool refusal_said; // that nobody can take that call: once, not with each ring
    int32_t endpoint;
    int32_t type;
    char plugin[LIBVOICE_PLUGIN_NAME_BYTES];
    char number[kNumberBytes];    // empty: can call, but not be called
    char wanted[kNumberBytes];    // the number that it has, or gets when it is free; empty: none
    char label[40];               // how output speaks of it: its number, or "plugin.endpoint"
    char name[kDisplayNameBytes]; // what displays show
    char digits[kNumberBytes];    // dialled so far
    line_state state;
    kex_timer_t *timer; // for the next digit, tone or ring; null: not running
    call *calls[kAppearances];
    uint32_t active;                  // which appearance its user speaks on
    uint32_t context;                 // its conference in its plugin; 0: none
    uint32_t last_call[kAppearances]; // that had media: for statistics, which arrive after the end
};

extern line lines[LIBVOICE_ENDPOINTS];

const char *line_state_name(line_state state);
/** The line of an endpoint number, or null. */
line *line_of_endpoint(int32_t endpoint);
/** The line that a text means: a number, "FXS1" or "fxs1.FXS1"; null: none. */
line *line_of_text(const char *text);

/** Changes a line's state, and says so. */
void line_set_state(line *who, line_state state);
/** Whether the line can be called: it is idle and on hook. */
bool line_is_free(const line *who);

/** Sends a signal without parameters. */
void line_signal(line *who, uint32_t signal);
/** Ends all that a telephone plays. */
void line_silence(line *who);
/** A line hears why nothing comes of it, until it is put back. */
void line_reject(line *who, uint32_t tone);

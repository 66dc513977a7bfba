// SPDX-License-Identifier: MIT
/**
 * @file calls.h
 * The call logic: a state machine for each line, and the calls between them.
 *
 * Nothing here waits for a plugin: a message is sent and the line's state changes at once; what the plugin reports
 * moves it on.
 */
#pragma once

#include "message.h"
#include "plan.h"

constexpr uint32_t kAppearances = 2; // calls per line: the active and the held one
constexpr uint32_t kCalls = 16;

enum line_state {
    LINE_IDLE,
    LINE_DIAL_TONE,
    LINE_COLLECTING, // digits
    LINE_CALLING,    // hears ring-back
    LINE_RINGING,
    LINE_TALKING,
    LINE_HELD, // by the other side
    LINE_BUSY, // off hook without a call: hears busy tone or the like until it is put back
};

struct call;

/** One registered endpoint: a telephone, a handset, or a line to the exchange. Its place in `lines` is its endpoint
 * number. */
struct line {
    bool used;
    bool reachable; // false while its plugin's connection has closed: nothing is sent any more
    bool off_hook;
    int32_t endpoint;
    int32_t type;
    char plugin[LIBVOICE_PLUGIN_NAME_BYTES];
    char number[kNumberBytes];    // empty: can call, but not be called
    char label[40];               // how output speaks of it: its number, or "plugin.endpoint"
    char name[kDisplayNameBytes]; // what displays show
    char digits[kNumberBytes];    // dialled so far
    line_state state;
    kex_timer_t *timer; // for the next digit; null: not running
    call *calls[kAppearances];
    uint32_t active;                  // which appearance its user speaks on
    uint32_t context;                 // its conference in its plugin; 0: none
    uint32_t last_call[kAppearances]; // for statistics, which arrive after the end
};

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

extern plan the_plan;
extern line lines[LIBVOICE_ENDPOINTS];
extern call calls[kCalls];

const char *line_state_name(line_state state);
/** The line of an endpoint number, or null. */
line *line_of_endpoint(int32_t endpoint);
/** The line that a text means: a number, "FXS1" or "fxs1.FXS1"; null: none. */
line *line_of_text(const char *text);

/* What plugins report. */
void line_added(line *line);
void line_gone(line *line, const char *why);
void line_off_hook(line *line);
void line_on_hook(line *line);
void line_digit(line *line, char digit);
void line_flash(line *line);
/** An exchange line rings; number and name of the caller may be empty. */
void exchange_rings(line *line, const char *number, const char *name);
/** The exchange, or its caller, has released the line. */
void exchange_released(line *line);
/** A plugin could not do what it was told; the line's calls end. */
void line_failed(line *line, uint32_t appearance, const char *why);

/** Ends a call as if its caller had hung up; both sides learn it. */
void end_call(call *call, line *leaving, const char *why);
/** "101->201" */
const char *call_text(const call *call);
/** Sends a signal without parameters. */
void line_signal(line *line, uint32_t signal);

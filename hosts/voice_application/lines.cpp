// SPDX-License-Identifier: MIT
// The lines that plugins registered.
#include "lines.h"

#include "console.h"
#include "timer.h"

#include <stdio.h>
#include <string.h>

line lines[LIBVOICE_ENDPOINTS];

const char *line_state_name(line_state state) {
    static const char *const names[] = {"idle",    "dial-tone", "collecting", "calling",
                                        "ringing", "talking",   "held",       "busy"};
    return names[state];
}

line *line_of_endpoint(int32_t endpoint) {
    if (endpoint < 0 || endpoint >= LIBVOICE_ENDPOINTS || !lines[endpoint].used)
        return nullptr;
    return &lines[endpoint];
}

line *line_of_text(const char *text) {
    if (text == nullptr || *text == 0) // an empty number is none
        return nullptr;
    for (line &who : lines)
        if (who.used && strcmp(who.number, text) == 0)
            return &who;
    for (line &who : lines) {
        if (!who.used)
            continue;
        char full[64];
        snprintf(full, sizeof full, "%s.%s", who.plugin, endpt_table[who.endpoint].name);
        if (strcmp(full, text) == 0 || strcmp(endpt_table[who.endpoint].name, text) == 0)
            return &who;
    }
    return nullptr;
}

void line_set_state(line *who, line_state state) {
    if (who->state == state)
        return;
    who->state = state;
    if (who->used)
        say("line %s %s", who->label, line_state_name(state));
}

bool line_is_free(const line *who) {
    return who->used && who->state == LINE_IDLE && !who->off_hook;
}

void line_signal(line *who, uint32_t signal) {
    if (!who->used || !who->reachable)
        return;
    voice_signal_start(who->endpoint, signal, who->active);
}

void line_silence(line *who) {
    if (who->type == VOICE_ENDPOINT_FXO)
        return; // it plays nothing, and digits that it still dials must not be cut off
    line_signal(who, LIBVOICE_SIGNAL_zil_cancel_all_signals);
}

void line_reject(line *who, uint32_t tone) {
    timer_stop(&who->timer);
    if (who->type == VOICE_ENDPOINT_FXO) { // nobody listens there
        line_set_state(who, LINE_IDLE);
        return;
    }
    line_signal(who, tone);
    line_set_state(who, LINE_BUSY);
}

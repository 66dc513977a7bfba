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
    for (line &line : lines)
        if (line.used && strcmp(line.number, text) == 0)
            return &line;
    for (line &line : lines) {
        if (!line.used)
            continue;
        char full[64];
        snprintf(full, sizeof full, "%s.%s", line.plugin, endpt_table[line.endpoint].name);
        if (strcmp(full, text) == 0 || strcmp(endpt_table[line.endpoint].name, text) == 0)
            return &line;
    }
    return nullptr;
}

void set_state(line *line, line_state state) {
    if (line->state == state)
        return;
    line->state = state;
    if (line->used)
        say("line %s %s", line->label, line_state_name(state));
}

bool may_begin(const line *line) {
    return line->used && line->state == LINE_IDLE && !line->off_hook;
}

void line_signal(line *line, uint32_t signal) {
    if (!line->used || !line->reachable)
        return;
    signal_message message;
    signal_begin(&message, line->endpoint, signal, line->active);
    signal_send(&message);
}

void silence(line *line) {
    line_signal(line, LIBVOICE_SIGNAL_zil_cancel_all_signals);
}

void refuse_line(line *line, uint32_t tone) {
    stop_timer(&line->timer);
    if (line->type == VOICE_ENDPOINT_FXO) { // nobody listens there
        set_state(line, LINE_IDLE);
        return;
    }
    line_signal(line, tone);
    set_state(line, LINE_BUSY);
}

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

namespace {

constexpr uint32_t kReminderAfterMs = 60000; // off hook without a call
constexpr uint32_t kReminderMs = 60000;      // the off-hook tone, then silence
constexpr voice_tone_t kReminder[] = {{1400, -100, 100, 100}, {2060, -100, 100, 100}}; // loud, and like nothing else

void reminder_end(kex_timer_t *timer) {
    for (line &who : lines)
        if (who.used && who.timer == timer) {
            timer_stop(&who.timer);
            return line_silence(&who);
        }
}

// Somebody has forgotten to hang up.
void reminder_begin(kex_timer_t *timer) {
    for (line &who : lines) {
        if (!who.used || who.timer != timer)
            continue;
        voice_signal_message_t message;
        voice_signal_begin(&message, who.endpoint, LIBVOICE_SIGNAL_tonegen_pt, who.active);
        voice_signal_add_tones(&message, kReminder, sizeof kReminder / sizeof kReminder[0]);
        if (who.reachable)
            voice_signal_send(&message);
        timer_start(&who.timer, reminder_end, kReminderMs);
        return;
    }
}

} // namespace

void line_reject(line *who, uint32_t tone) {
    if (who->type == VOICE_ENDPOINT_FXO) { // nobody listens there
        line_set_state(who, LINE_IDLE);
        return;
    }
    timer_stop(&who->timer);
    line_signal(who, tone);
    line_set_state(who, LINE_BUSY);
    timer_start(&who->timer, reminder_begin, kReminderAfterMs);
}

// SPDX-License-Identifier: MIT
// The events of a line.
#include "line_events.h"

#include "calls.h"
#include "dialling.h"
#include "exchange.h"
#include "hold.h"
#include "media.h"
#include "timer.h"

void line_off_hook(line *line) {
    if (line->off_hook)
        return; // "init" can come twice, and each time the plugin reports it again
    line->off_hook = true;
    if (line->state == LINE_RINGING) {
        call *call = line->calls[line->active];
        if (call->from.who->type == VOICE_ENDPOINT_FXO)
            exchange_seize(call->from.who);
        talk(call);
    } else if (line->state == LINE_IDLE) {
        give_dial_tone(line);
    }
}

void line_on_hook(line *line) {
    if (!line->off_hook)
        return;
    line->off_hook = false;
    stop_timer(&line->timer);
    for (call *call : line->calls)
        if (call != nullptr)
            end_call(call, line, "hung up");
    if (line->context != 0)
        media_leave(line);
    silence(line);
    line->active = 0;
    set_state(line, LINE_IDLE);
}

void line_digit(line *line, char digit) {
    if (line->state == LINE_DIAL_TONE || line->state == LINE_COLLECTING)
        return collect_digit(line, digit);
    if (line->state != LINE_TALKING || line->calls[line->active] == nullptr)
        return;
    struct line *other = other_party(line->calls[line->active], line)->who;
    const char text[2] = {digit, 0};
    if (other->type == VOICE_ENDPOINT_FXO) // telephones hear each other's keys
        exchange_dial(other, text);
}

void line_flash(line *line) {
    if (!line->off_hook || line->type == VOICE_ENDPOINT_FXO)
        return;
    call *active = line->calls[line->active];
    bool holding = held_call(line) != nullptr;

    if (line->state == LINE_TALKING && line->context == 0 && active != nullptr) {
        if (other_party(active, line)->who->context != 0)
            return; // one of a conference cannot put the others on hold
        return holding ? join(line) : hold(line);
    }
    if (!holding)
        return;
    // Dialling, ringing or refused with somebody on hold: back to him.
    if (active != nullptr) {
        line->calls[line->active] = nullptr; // so that its end plays no busy tone here
        end_call(active, line, "given up");
    }
    resume(line);
}

void line_failed(line *line, uint32_t appearance, const char *why) {
    if (appearance < kAppearances && line->calls[appearance] != nullptr)
        end_call(line->calls[appearance], nullptr, why);
}

void line_gone(line *line, const char *why) {
    line->used = false;
    stop_timer(&line->timer);
    for (call *call : line->calls)
        if (call != nullptr)
            end_call(call, line, why);
    line->context = 0; // it went with its plugin, or with the endpoint
    line->off_hook = false;
    line->state = LINE_IDLE;
}

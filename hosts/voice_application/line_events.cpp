// SPDX-License-Identifier: MIT
// The events of a line.
#include "line_events.h"

#include "calls.h"
#include "console.h"
#include "dialling.h"
#include "exchange.h"
#include "hold.h"
#include "media.h"
#include "timer.h"

void line_off_hook(line *who) {
    if (who->type == VOICE_ENDPOINT_FXO)
        return; // it has no receiver: exchange_seize() lifts it
    if (who->off_hook)
        return; // "init" can come twice, and each time the plugin reports it again
    who->off_hook = true;
    if (who->state == LINE_RINGING) {
        call *it = who->calls[who->active];
        if (it->from.who->type == VOICE_ENDPOINT_FXO)
            exchange_seize(it->from.who);
        call_answer(it);
    } else if (who->state == LINE_IDLE) {
        line_give_dial_tone(who);
    }
}

void line_on_hook(line *who) {
    if (!who->off_hook || who->type == VOICE_ENDPOINT_FXO)
        return;
    who->off_hook = false;
    timer_stop(&who->timer);
    for (call *it : who->calls)
        if (it != nullptr)
            call_end(it, who, "hung up");
    if (who->context != 0)
        media_leave(who);
    line_silence(who);
    who->active = 0;
    line_set_state(who, LINE_IDLE);
}

void line_digit(line *who, char digit) {
    if (who->state == LINE_DIAL_TONE || who->state == LINE_COLLECTING)
        return line_collect_digit(who, digit);
    if (who->state != LINE_TALKING || who->calls[who->active] == nullptr)
        return;
    line *other = party_opposite(who->calls[who->active], who)->who;
    const char text[2] = {digit, 0};
    if (other->type == VOICE_ENDPOINT_FXO) // telephones hear each other's keys
        exchange_dial(other, text);
}

void line_number(line *who, const char *number) {
    if (who->state == LINE_DIAL_TONE || who->state == LINE_COLLECTING)
        return line_take_number(who, number);
    for (; *number != 0; number++)
        line_digit(who, *number);
}

void line_flash(line *who) {
    if (!who->off_hook || who->type == VOICE_ENDPOINT_FXO)
        return;
    call *active = who->calls[who->active];
    bool holding = line_held_call(who) != nullptr;

    if (who->state == LINE_TALKING && who->context == 0 && active != nullptr) {
        if (party_opposite(active, who)->who->context != 0)
            return; // one of a conference cannot put the others on hold
        return holding ? line_join(who) : line_hold(who);
    }
    if (!holding)
        return;
    // Dialling, ringing or refused with somebody on hold: back to him.
    if (active != nullptr) {
        who->calls[who->active] = nullptr; // so that its end plays no busy tone here
        call_end(active, who, "given up");
    }
    line_resume(who);
}

void line_reach(line *who, bool is_reached) {
    who->away = !is_reached;
    if (who->away && who->state == LINE_RINGING)
        call_end(who->calls[who->active], nullptr, "no answer from the handset");
}

void line_failed(line *who, uint32_t appearance, bool is_temporary, const char *why) {
    call *it = appearance < kAppearances ? who->calls[appearance] : nullptr;
    if (it == nullptr)
        return;
    // It failed at media that has been taken down meanwhile, perhaps that of the call before.
    if (is_temporary && it->from.port == 0)
        return;
    if (is_temporary && media_try_other_ports(it, party_of_line(it, who)))
        say("call %u %s tries other media ports: %s", it->id, call_text(it), why);
    else
        call_end(it, nullptr, why);
}

void line_gone(line *who, const char *why) {
    who->used = false;
    timer_stop(&who->timer);
    for (call *it : who->calls)
        if (it != nullptr)
            call_end(it, who, why);
    if (who->context != 0)
        media_leave(who);
    who->off_hook = false;
    who->state = LINE_IDLE;
}

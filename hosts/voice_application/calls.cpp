// SPDX-License-Identifier: MIT
// Calls: how they begin, are answered, and end.
#include "calls.h"

#include "codecs.h"
#include "console.h"
#include "media.h"
#include "timer.h"

#include <initializer_list>
#include <stdio.h>
#include <string.h>

call calls[kCalls];

namespace {

uint32_t last_call_id;

// After a call has gone from one of a line's appearances: what its user hears now.
void settle(line *line) {
    call *left = line->calls[0] != nullptr ? line->calls[0] : line->calls[1];
    if (line->context != 0 && left != nullptr) {
        line->active = party_of(left, line)->appearance; // the conference goes on between two
        return;
    }
    if (line->context != 0)
        media_leave(line);
    if (!line->off_hook) { // it was ringing
        silence(line);
        set_state(line, LINE_IDLE);
        return;
    }
    if (line->type == VOICE_ENDPOINT_FXO) {
        line_signal(line, LIBVOICE_SIGNAL_fxo_on);
        line->off_hook = false;
        set_state(line, LINE_IDLE);
        return;
    }
    if (left != nullptr && (left->state != CALL_HELD || left->holder != line))
        return; // the held one went; the active one is not touched
    if (left != nullptr && (line->state == LINE_DIAL_TONE || line->state == LINE_COLLECTING))
        return;
    if (left == nullptr &&
        (line->state == LINE_DIAL_TONE || line->state == LINE_COLLECTING || line->state == LINE_BUSY))
        return; // the held party gave up while we were dialling
    line_signal(line, LIBVOICE_SIGNAL_cg_bt);
    set_state(line, LINE_BUSY); // with a held call left, a flash brings it back
}

} // namespace

const char *call_text(const call *call) {
    static char text[2 * 40 + 4];
    snprintf(text, sizeof text, "%s->%s", call->from.who->label, call->to_text);
    return text;
}

party *party_of(call *call, const line *line) {
    return call->from.who == line ? &call->from : &call->to;
}

party *other_party(call *call, const line *line) {
    return call->from.who == line ? &call->to : &call->from;
}

call *new_call(line *from, line *to, const char *to_text, const voice_codec_t *codec) {
    for (call &call : calls) {
        if (call.used)
            continue;
        memset(&call, 0, sizeof call);
        call.used = true;
        call.id = ++last_call_id;
        call.codec = *codec;
        call.from.who = from;
        call.from.appearance = from->active;
        call.to.who = to;
        to->active = 0;
        snprintf(call.to_text, sizeof call.to_text, "%s", to_text);
        for (party *party : {&call.from, &call.to}) {
            party->who->calls[party->appearance] = &call;
            party->who->last_call[party->appearance] = call.id;
        }
        return &call;
    }
    return nullptr;
}

void say_refused_call(const line *from, const char *to_text, const char *why) {
    say("call %u %s->%s refused: %s", ++last_call_id, from->label, to_text, why);
}

void refuse_call(line *from, const char *to_text, uint32_t tone, const char *why) {
    say_refused_call(from, to_text, why);
    refuse_line(from, tone);
}

void talk(call *call) {
    stop_timer(&call->timer);
    silence(call->from.who);
    silence(call->to.who);
    call->state = CALL_TALKING;
    say("call %u %s answered codec=%s", call->id, call_text(call), codec_name(call->codec.codec));
    set_state(call->from.who, LINE_TALKING);
    set_state(call->to.who, LINE_TALKING);
    const char *wrong = media_start(call);
    if (wrong != nullptr)
        end_call(call, nullptr, wrong);
}

void end_call(call *call, line *leaving, const char *why) {
    if (leaving != nullptr)
        say("call %u %s ended: %s %s", call->id, call_text(call), leaving->label, why);
    else
        say("call %u %s ended: %s", call->id, call_text(call), why);
    stop_timer(&call->timer);
    media_stop(call);
    for (party *party : {&call->from, &call->to})
        if (party->who->calls[party->appearance] == call)
            party->who->calls[party->appearance] = nullptr;
    call->used = false;
    for (party *party : {&call->from, &call->to})
        if (party->who != leaving && party->who->used)
            settle(party->who);
}

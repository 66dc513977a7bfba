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
void line_settle(line *who) {
    call *left = who->calls[0] != nullptr ? who->calls[0] : who->calls[1];
    if (who->context != 0 && left != nullptr) {
        who->active = party_of_line(left, who)->appearance; // the conference goes on between two
        return;
    }
    if (who->context != 0)
        media_leave(who);
    if (!who->off_hook) { // it was ringing
        line_silence(who);
        line_set_state(who, LINE_IDLE);
        return;
    }
    if (who->type == VOICE_ENDPOINT_FXO) {
        line_signal(who, LIBVOICE_SIGNAL_fxo_on);
        who->off_hook = false;
        line_set_state(who, LINE_IDLE);
        return;
    }
    if (left != nullptr && (left->state != CALL_HELD || left->holder != who))
        return; // the held one went; the active one is not touched
    if (left != nullptr && (who->state == LINE_DIAL_TONE || who->state == LINE_COLLECTING))
        return;
    if (left == nullptr && (who->state == LINE_DIAL_TONE || who->state == LINE_COLLECTING || who->state == LINE_BUSY))
        return;                              // the held party gave up while we were dialling
    line_reject(who, LIBVOICE_SIGNAL_cg_bt); // with a held call left, a flash brings it back
}

} // namespace

const char *call_text(const call *it) {
    static char text[2 * 40 + 4];
    snprintf(text, sizeof text, "%s->%s", it->from.who->label, it->to_text);
    return text;
}

party *party_of_line(call *it, const line *who) {
    return it->from.who == who ? &it->from : &it->to;
}

party *party_opposite(call *it, const line *who) {
    return it->from.who == who ? &it->to : &it->from;
}

call *call_begin(line *from, line *to, const char *to_text, const voice_codec_t *codec) {
    for (call &it : calls) {
        if (it.used)
            continue;
        memset(&it, 0, sizeof it);
        it.used = true;
        it.id = ++last_call_id;
        it.codec = *codec;
        it.from.who = from;
        it.from.appearance = from->active;
        it.to.who = to;
        to->active = 0;
        snprintf(it.to_text, sizeof it.to_text, "%s", to_text);
        for (party *each : {&it.from, &it.to})
            each->who->calls[each->appearance] = &it;
        return &it;
    }
    return nullptr;
}

void call_say_rejected(const line *from, const char *to_text, const char *why) {
    say("call %u %s->%s refused: %s", ++last_call_id, from->label, to_text, why);
}

void call_reject(line *from, const char *to_text, uint32_t tone, const char *why) {
    call_say_rejected(from, to_text, why);
    line_reject(from, tone);
}

call *call_place(line *from, line *to, const char *digits) {
    voice_codec_t codec;
    const char *wrong = media_choose_codec(from, to, &codec);
    call *it = wrong == nullptr ? call_begin(from, to, digits, &codec) : nullptr;
    if (it == nullptr)
        call_reject(from, digits, LIBVOICE_SIGNAL_cg_ct, wrong != nullptr ? wrong : "too many calls");
    return it;
}

void call_answer(call *it) {
    timer_stop(&it->timer);
    line_silence(it->from.who);
    line_silence(it->to.who);
    it->state = CALL_TALKING;
    say("call %u %s answered codec=%s", it->id, call_text(it), codec_name(it->codec.codec));
    line_set_state(it->from.who, LINE_TALKING);
    line_set_state(it->to.who, LINE_TALKING);
    const char *wrong = media_start(it);
    if (wrong != nullptr)
        call_end(it, nullptr, wrong);
}

void call_end(call *it, line *leaving, const char *why) {
    if (leaving != nullptr)
        say("call %u %s ended: %s %s", it->id, call_text(it), leaving->label, why);
    else
        say("call %u %s ended: %s", it->id, call_text(it), why);
    timer_stop(&it->timer);
    media_stop(it);
    for (party *each : {&it->from, &it->to})
        if (each->who->calls[each->appearance] == it)
            each->who->calls[each->appearance] = nullptr;
    it->used = false;
    for (party *each : {&it->from, &it->to})
        if (each->who != leaving && each->who->used)
            line_settle(each->who);
}

// SPDX-License-Identifier: MIT
// Lines to the exchange.
#include "exchange.h"

#include "media.h"
#include "ringing.h"
#include "timer.h"

#include <string.h>

namespace {

bool number_is_lower(const char *number, const char *than) {
    size_t length = strlen(number), other = strlen(than);
    return length != other ? length < other : strcmp(number, than) < 0;
}

bool line_may_be_rung(const line *who) {
    return line_is_free(who) && !who->away;
}

// Of the lowest number, among those that can be rung now if there are any.
line *line_of_lowest_number() {
    line *lowest = nullptr;
    for (line &candidate : lines) {
        if (!candidate.used || candidate.number[0] == 0)
            continue;
        const bool better = lowest != nullptr && line_may_be_rung(&candidate) != line_may_be_rung(lowest)
                                ? line_may_be_rung(&candidate)
                                : lowest == nullptr || number_is_lower(candidate.number, lowest->number);
        if (better)
            lowest = &candidate;
    }
    return lowest;
}

constexpr uint32_t kRingsNoMore = 10000; // ms without a ring: the caller has given up, and nobody said so

void ringing_in_end(line *who) {
    timer_stop(&who->timer);
    who->rings_in = who->refusal_said = false;
}

void ringing_in_timer(kex_timer_t *timer) {
    for (line &who : lines)
        if (who.used && who.timer == timer)
            return ringing_in_end(&who);
}

void ringing_in_refuse(line *who, const char *called, const char *why) {
    if (!who->refusal_said)
        call_say_rejected(who, called, why);
    who->refusal_said = true;
}

} // namespace

// An exchange line has no answer: the caller hears the exchange from the moment the line is seized.
void line_call_exchange(line *from, const char *digits, const char *number) {
    line *to = nullptr;
    for (line &who : lines)
        if (to == nullptr && who.used && who.type == VOICE_ENDPOINT_FXO && &who != from &&
            (the_plan.exchange_endpoint[0] == 0 || line_of_text(the_plan.exchange_endpoint) == &who) &&
            line_is_free(&who) && !who.rings_in)
            to = &who;
    if (to == nullptr)
        return call_reject(from, digits, LIBVOICE_SIGNAL_cg_ct, "no exchange line is free");
    call *it = call_place(from, to, digits);
    if (it == nullptr)
        return;
    exchange_seize(to);
    exchange_dial(to, number);
    call_answer(it);
}

void exchange_dial(line *who, const char *digits) {
    if (!who->reachable)
        return;
    voice_signal_message_t message;
    voice_signal_begin(&message, who->endpoint, LIBVOICE_SIGNAL_fxoen_sd, 0);
    voice_signal_add_text(&message, LIBVOICE_PARAM_fxoen_sd_ds, digits);
    voice_signal_send(&message);
}

void exchange_seize(line *who) {
    ringing_in_end(who);
    line_signal(who, LIBVOICE_SIGNAL_fxo_of);
    who->off_hook = true;
}

void exchange_ring(line *who, const char *number, const char *name) {
    if (who->type != VOICE_ENDPOINT_FXO || who->off_hook)
        return;
    who->rings_in = true;
    timer_start(&who->timer, ringing_in_timer, kRingsNoMore);
    if (who->state != LINE_IDLE) // it is offered to somebody
        return call_set_caller(who->calls[0], number, name);
    line *to = the_plan.incoming_number[0] != 0 ? line_of_text(the_plan.incoming_number) : line_of_lowest_number();
    if (to == nullptr)
        return ringing_in_refuse(who, the_plan.incoming_number, "nobody to ring");
    if (!line_may_be_rung(to))
        return ringing_in_refuse(who, to->label, to->away ? "no answer from the handset" : "busy");
    voice_codec_t codec;
    const char *wrong = media_choose_codec(who, to, &codec);
    call *it = wrong == nullptr ? call_begin(who, to, to->label, &codec) : nullptr;
    if (it == nullptr)
        return ringing_in_refuse(who, to->label, wrong != nullptr ? wrong : "too many calls");
    call_set_caller(it, number, name);
    call_ring(it);
}

void exchange_release(line *who) {
    if (who->type != VOICE_ENDPOINT_FXO)
        return;
    ringing_in_end(who);
    if (who->calls[0] != nullptr)
        call_end(who->calls[0], nullptr, "released by the exchange");
}

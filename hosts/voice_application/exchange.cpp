// SPDX-License-Identifier: MIT
// Lines to the exchange.
#include "exchange.h"

#include "media.h"
#include "ringing.h"

#include <stdio.h>
#include <string.h>

namespace {

bool number_is_lower(const char *number, const char *than) {
    size_t length = strlen(number), other = strlen(than);
    return length != other ? length < other : strcmp(number, than) < 0;
}

line *line_of_lowest_number() {
    line *lowest = nullptr;
    for (line &candidate : lines)
        if (candidate.used && candidate.number[0] != 0 &&
            (lowest == nullptr || number_is_lower(candidate.number, lowest->number)))
            lowest = &candidate;
    return lowest;
}

} // namespace

// An exchange line has no answer: the caller hears the exchange from the moment the line is seized.
void line_call_exchange(line *from, const char *digits) {
    line *to = nullptr;
    for (line &who : lines)
        if (to == nullptr && who.used && who.type == VOICE_ENDPOINT_FXO && &who != from &&
            (the_plan.exchange_endpoint[0] == 0 || line_of_text(the_plan.exchange_endpoint) == &who) &&
            line_is_free(&who))
            to = &who;
    if (to == nullptr)
        return call_reject(from, digits, LIBVOICE_SIGNAL_cg_ct, "no exchange line is free");
    call *it = call_place(from, to, digits);
    if (it == nullptr)
        return;
    exchange_seize(to);
    exchange_dial(to, digits + strlen(the_plan.exchange_prefix));
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
    line_signal(who, LIBVOICE_SIGNAL_fxo_of);
    who->off_hook = true;
}

void exchange_ring(line *who, const char *number, const char *name) {
    if (who->type != VOICE_ENDPOINT_FXO || who->state != LINE_IDLE)
        return; // each ring is reported; the first one counts
    line *to = the_plan.incoming_number[0] != 0 ? line_of_text(the_plan.incoming_number) : line_of_lowest_number();
    if (to == nullptr || !line_is_free(to)) {
        const char *called = to != nullptr ? to->label : the_plan.incoming_number;
        call_say_rejected(who, called, to != nullptr ? "busy" : "nobody to ring");
        return;
    }
    voice_codec_t codec;
    const char *wrong = media_choose_codec(who, to, &codec);
    call *it = wrong == nullptr ? call_begin(who, to, to->label, &codec) : nullptr;
    if (it == nullptr) {
        call_say_rejected(who, to->label, wrong != nullptr ? wrong : "too many calls");
        return;
    }
    snprintf(it->from_number, sizeof it->from_number, "%s", number);
    snprintf(it->from_name, sizeof it->from_name, "%s", name);
    call_ring(it);
}

void exchange_release(line *who) {
    if (who->type == VOICE_ENDPOINT_FXO && who->calls[0] != nullptr)
        call_end(who->calls[0], nullptr, "released by the exchange");
}

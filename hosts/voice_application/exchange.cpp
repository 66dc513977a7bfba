// SPDX-License-Identifier: MIT
// Lines to the exchange.
#include "exchange.h"

#include "media.h"
#include "ringing.h"

#include <stdio.h>
#include <string.h>

// An exchange line has no answer: the caller hears the exchange from the moment the line is seized.
void call_exchange(line *from, const char *digits) {
    line *to = nullptr;
    for (line &line : lines)
        if (to == nullptr && line.used && line.type == VOICE_ENDPOINT_FXO && &line != from &&
            (the_plan.exchange_endpoint[0] == 0 || line_of_text(the_plan.exchange_endpoint) == &line) &&
            may_begin(&line))
            to = &line;
    voice_codec_t codec;
    if (to == nullptr)
        return refuse_call(from, digits, LIBVOICE_SIGNAL_cg_ct, "no exchange line is free");
    const char *wrong = media_choose_codec(from, to, &codec);
    if (wrong != nullptr)
        return refuse_call(from, digits, LIBVOICE_SIGNAL_cg_ct, wrong);
    call *call = new_call(from, to, digits, &codec);
    if (call == nullptr)
        return refuse_call(from, digits, LIBVOICE_SIGNAL_cg_ct, "too many calls");
    exchange_seize(to);
    exchange_dial(to, digits + strlen(the_plan.exchange_prefix));
    talk(call);
}

void exchange_dial(line *line, const char *digits) {
    if (!line->reachable)
        return;
    signal_message message;
    signal_begin(&message, line->endpoint, LIBVOICE_SIGNAL_fxoen_sd, 0);
    signal_add_bytes(&message, LIBVOICE_PARAM_fxoen_sd_ds, digits, static_cast<uint32_t>(strlen(digits) + 1));
    signal_send(&message);
}

void exchange_seize(line *line) {
    line_signal(line, LIBVOICE_SIGNAL_fxo_of);
    line->off_hook = true;
}

void exchange_rings(line *line, const char *number, const char *name) {
    if (line->type != VOICE_ENDPOINT_FXO || line->state != LINE_IDLE)
        return; // each ring is reported; the first one counts
    struct line *to = line_of_text(the_plan.incoming_number);
    for (struct line &candidate : lines)
        if (the_plan.incoming_number[0] == 0 && candidate.used && candidate.number[0] != 0 &&
            (to == nullptr || strcmp(candidate.number, to->number) < 0))
            to = &candidate;
    if (to == nullptr || !may_begin(to)) {
        const char *called = to != nullptr ? to->label : the_plan.incoming_number;
        say_refused_call(line, called, to != nullptr ? "busy" : "nobody to ring");
        return;
    }
    voice_codec_t codec;
    const char *wrong = media_choose_codec(line, to, &codec);
    call *call = wrong == nullptr ? new_call(line, to, to->label, &codec) : nullptr;
    if (call == nullptr) {
        say_refused_call(line, to->label, wrong != nullptr ? wrong : "too many calls");
        return;
    }
    snprintf(call->from_number, sizeof call->from_number, "%s", number);
    snprintf(call->from_name, sizeof call->from_name, "%s", name);
    start_ringing(call);
}

void exchange_released(line *line) {
    if (line->type == VOICE_ENDPOINT_FXO && line->calls[0] != nullptr)
        end_call(line->calls[0], nullptr, "released by the exchange");
}

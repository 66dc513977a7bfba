// SPDX-License-Identifier: MIT
// A call before it is answered.
#include "ringing.h"

#include "caller_display.h"
#include "console.h"
#include "country.h"
#include "timer.h"

#include <stdio.h>

namespace {

constexpr uint32_t kDisplayAfterMs = 500; // caller display stands between the first and the second ring
constexpr uint32_t kNoAnswerMs = 120000;

void line_ring(line *who) {
    const country_rules *rules = country_get(the_plan.country);
    voice_signal_message_t message;
    voice_signal_begin(&message, who->endpoint, LIBVOICE_SIGNAL_al_ri, 0);
    voice_signal_add_cadence(&message, rules->cadence, rules->cadence_words);
    voice_signal_add_i32(&message, LIBVOICE_PARAM_al_ri_freq, static_cast<int32_t>(rules->ring_frequency));
    if (who->reachable)
        voice_signal_send(&message);
}

void call_display_caller(call *it) {
    char text[LIBVOICE_DB_TEXT_BYTES];
    uint32_t length = caller_display_encode(it->from_number, it->from_name, it->to_text, text);
    voice_signal_message_t message;
    voice_signal_begin(&message, it->to.who->endpoint, LIBVOICE_SIGNAL_andisp_data, 0);
    voice_signal_add_bytes(&message, LIBVOICE_PARAM_andisp_data_db, text, length);
    voice_signal_add_i32(&message, LIBVOICE_PARAM_andisp_data_tas, 0);
    if (it->to.who->reachable)
        voice_signal_send(&message);
}

void call_ringing_timer(kex_timer_t *timer) {
    for (call &it : calls) {
        if (!it.used || it.timer != timer)
            continue;
        if (it.displayed) {
            call_end(&it, nullptr, "no answer");
            return;
        }
        it.displayed = true;
        call_display_caller(&it);
        kex_timer_start(timer, kNoAnswerMs);
        return;
    }
}

} // namespace

void call_set_caller(call *it, const char *number, const char *name) {
    const bool is_known = it->from_number[0] != 0 || it->from_name[0] != 0;
    if (is_known || (*number == 0 && *name == 0))
        return;
    snprintf(it->from_number, sizeof it->from_number, "%s", number);
    snprintf(it->from_name, sizeof it->from_name, "%s", name);
    if (it->displayed)
        call_display_caller(it);
}

void call_ring(call *it) {
    say("call %u %s ringing", it->id, call_text(it));
    if (it->from.who->type != VOICE_ENDPOINT_FXO)
        line_signal(it->from.who, LIBVOICE_SIGNAL_cg_rt);
    line_set_state(it->from.who, LINE_CALLING);
    line_ring(it->to.who);
    line_set_state(it->to.who, LINE_RINGING);
    timer_start(&it->timer, call_ringing_timer, country_first_ring_ms(country_get(the_plan.country)) + kDisplayAfterMs);
}

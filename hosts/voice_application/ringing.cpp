// SPDX-License-Identifier: MIT
// A call before it is answered.
#include "ringing.h"

#include "console.h"
#include "timer.h"

#include <string.h>
#include <time.h>

namespace {

constexpr uint32_t kRingOnMs = 1000; // ring cadence
constexpr uint32_t kRingOffMs = 4000;
constexpr uint32_t kDisplayAfterMs = kRingOnMs + 500; // caller display stands between the first and the second ring
constexpr uint32_t kNoAnswerMs = 120000;

void ring(line *line) {
    const uint32_t cadence[] = {kRingOnMs, kRingOffMs};
    signal_message message;
    signal_begin(&message, line->endpoint, LIBVOICE_SIGNAL_al_ri, 0);
    signal_add_bytes(&message, LIBVOICE_PARAM_al_ri_cad, cadence, sizeof cadence);
    signal_add_int(&message, LIBVOICE_PARAM_al_ri_freq, 25);
    if (line->reachable)
        signal_send(&message);
}

void display_caller(call *call) {
    char now_text[16]; // MMDDhhmm, with room for what a broken clock could print
    time_t now = time(nullptr);
    struct tm parts;
    localtime_r(&now, &parts);
    strftime(now_text, sizeof now_text, "%m%d%H%M", &parts);

    uint8_t withheld = 'P';
    libvoice_db_common_fields common = {};
    common.date_time = {now_text, 8};
    if (call->from_number[0] != 0)
        common.calling_number = {call->from_number, static_cast<uint32_t>(strlen(call->from_number))};
    else
        common.no_calling_number = {&withheld, 1};
    libvoice_db_message_fields fields = {};
    if (call->from_name[0] != 0)
        fields.name = {call->from_name, static_cast<uint32_t>(strlen(call->from_name))};
    fields.slot2 = {call->to_text, static_cast<uint32_t>(strlen(call->to_text))};
    // No call type: a call without one is a voice call, and some displays stop reading at items that they do not know.

    char text[LIBVOICE_DB_TEXT_BYTES];
    uint32_t length = 0; // counts the terminator, which travels too
    libvoice_db_call_setup_encode(&fields, &common, text, &length);
    signal_message message;
    signal_begin(&message, call->to.who->endpoint, LIBVOICE_SIGNAL_andisp_data, 0);
    signal_add_bytes(&message, LIBVOICE_PARAM_andisp_data_db, text, length);
    signal_add_int(&message, LIBVOICE_PARAM_andisp_data_tas, 0);
    if (call->to.who->reachable)
        signal_send(&message);
}

void ringing_timer(kex_timer_t *timer) {
    for (call &call : calls) {
        if (!call.used || call.timer != timer)
            continue;
        if (call.displayed) {
            end_call(&call, nullptr, "no answer");
            return;
        }
        call.displayed = true;
        display_caller(&call);
        kex_timer_start(timer, kNoAnswerMs);
        return;
    }
}

} // namespace

void start_ringing(call *call) {
    say("call %u %s ringing", call->id, call_text(call));
    if (call->from.who->type != VOICE_ENDPOINT_FXO)
        line_signal(call->from.who, LIBVOICE_SIGNAL_cg_rt);
    set_state(call->from.who, LINE_CALLING);
    ring(call->to.who);
    set_state(call->to.who, LINE_RINGING);
    start_timer(&call->timer, ringing_timer, kDisplayAfterMs);
}

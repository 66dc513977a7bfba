// SPDX-License-Identifier: MIT
// Events that plugins send.
#include "events.h"

#include "caller_display.h"
#include "console.h"
#include "exchange.h"
#include "line_events.h"
#include "statistics.h"

#include <stdio.h>

namespace {

// A whole number at once, as a handset sends it. What is no key is left out.
bool event_take_number(line *who, voice_params_t params) {
    char text[256], number[256];
    if (!voice_params_get_text(params, LIBVOICE_PARAM_dd_ce_ds, text, sizeof text))
        return false;
    size_t length = 0;
    for (const char *digit = text; *digit != 0; digit++)
        if (voice_key_event(*digit) != 0)
            number[length++] = *digit;
    number[length] = 0;
    line_number(who, number);
    return true;
}

void event_take_cause(line *who, uint32_t appearance, voice_params_t params) {
    int32_t cause = 0;
    char text[80] = "media failed", why[160];
    voice_params_get_i32(params, LIBVOICE_PARAM_g_cause_generalcause, &cause);
    voice_params_get_text(params, LIBVOICE_PARAM_g_cause_failurecause, text, sizeof text);
    snprintf(why, sizeof why, "%s: %s (cause %d)", who->label, text, cause);
    line_failed(who, appearance, cause == VOICE_CAUSE_FAILURE_TEMPORARY, why);
}

void event_take_exchange_ring(line *who, voice_params_t params) {
    char text[LIBVOICE_DB_TEXT_BYTES * 2];
    caller_display caller = {};
    if (voice_params_get_block(params, LIBVOICE_PARAM_fxo_ri_cid, text, sizeof text))
        caller_display_decode(text, &caller);
    exchange_ring(who, caller.number, caller.name);
}

void event_take_handset_property(line *who, voice_params_t params) {
    char software[40] = "?", hardware[40] = "?";
    int32_t reachable = 0;
    voice_params_get_text(params, LIBVOICE_PARAM_zil_dect_property_sw_version, software, sizeof software);
    voice_params_get_text(params, LIBVOICE_PARAM_zil_dect_property_hw_version, hardware, sizeof hardware);
    voice_params_get_i32(params, LIBVOICE_PARAM_zil_dect_property_reachability_status, &reachable);
    say("handset %s software=%s hardware=%s reachable=%s", who->label, software, hardware,
        reachable != 0 ? "yes" : "no");
    line_reach(who, reachable != 0);
}

} // namespace

int32_t event_arrived(libvoice_event_t *message) {
    const voice_event_t head = voice_event_head(message);
    const voice_params_t params = voice_event_params(message);
    line *who = line_of_endpoint(head.endpoint);
    if (who == nullptr) {
        say("event %s of unknown endpoint %d ignored", libvoice_param_str(head.event), head.endpoint);
        return 1;
    }
    if (voice_event_key(head.event) != 0) {
        line_digit(who, voice_event_key(head.event));
        return 0;
    }
    switch (head.event) {
    case LIBVOICE_EVENT_al_of:
        line_off_hook(who);
        return 0;
    case LIBVOICE_EVENT_al_on:
        line_on_hook(who);
        return 0;
    case LIBVOICE_EVENT_al_fl:
        line_flash(who);
        return 0;
    case LIBVOICE_EVENT_dd_ce:
        return event_take_number(who, params) ? 0 : 1;
    case LIBVOICE_EVENT_zil_call_stats:
        statistics_take(who, head.line, params);
        return 0;
    case LIBVOICE_EVENT_g_cause:
        event_take_cause(who, head.line, params);
        return 0;
    case LIBVOICE_EVENT_fxo_ri:
        event_take_exchange_ring(who, params);
        return 0;
    case LIBVOICE_EVENT_fxo_rh:
        exchange_release(who);
        return 0;
    case LIBVOICE_EVENT_zil_dect_property:
        event_take_handset_property(who, params);
        return 0;
    default:
        say("event %s of %s ignored", libvoice_param_str(head.event), who->label);
        return 1;
    }
}

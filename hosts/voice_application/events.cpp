// SPDX-License-Identifier: MIT
// Events that plugins send.
#include "events.h"

#include "console.h"
#include "exchange.h"
#include "line_events.h"
#include "statistics.h"

#include <stdio.h>
#include <string.h>

namespace {

void take_cause(line *line, const voice_event_t *head, const uint8_t *params) {
    int32_t cause = 0;
    char text[80] = "media failed", why[160];
    params_int(params, head->length, LIBVOICE_PARAM_g_cause_generalcause, &cause);
    params_text(params, head->length, LIBVOICE_PARAM_g_cause_failurecause, text, sizeof text);
    snprintf(why, sizeof why, "%s: %s (cause %d)", line->label, text, cause);
    line_failed(line, head->line, why);
}

void take_exchange_ring(line *line, const voice_event_t *head, const uint8_t *params) {
    char text[LIBVOICE_DB_TEXT_BYTES * 2];
    char number[21] = "", name[51] = ""; // one more than the capacity told: the decoder terminates there
    if (params_text(params, head->length, LIBVOICE_PARAM_fxo_ri_cid, text, sizeof text)) {
        libvoice_db_common_fields common = {};
        common.calling_number = {number, 20};
        libvoice_db_message_fields fields = {};
        fields.name = {name, 50};
        libvoice_db_call_setup_decode(text, static_cast<uint32_t>(strlen(text)), &fields, &common);
    }
    exchange_rings(line, number, name);
}

void take_dect_property(const line *line, const voice_event_t *head, const uint8_t *params) {
    char software[40] = "?", hardware[40] = "?";
    int32_t reachable = 0;
    params_text(params, head->length, LIBVOICE_PARAM_zil_dect_property_sw_version, software, sizeof software);
    params_text(params, head->length, LIBVOICE_PARAM_zil_dect_property_hw_version, hardware, sizeof hardware);
    params_int(params, head->length, LIBVOICE_PARAM_zil_dect_property_reachability_status, &reachable);
    say("handset %s software=%s hardware=%s reachable=%s", line->label, software, hardware,
        reachable != 0 ? "yes" : "no");
}

} // namespace

int32_t app_event(libvoice_event_t *message) {
    voice_event_t head;
    memcpy(&head, message, sizeof head);
    const uint8_t *params = libvoice_event_params(message);
    line *line = line_of_endpoint(head.endpoint);
    if (line == nullptr) {
        say("event %s of unknown endpoint %d ignored", libvoice_param_str(head.event), head.endpoint);
        return 1;
    }
    static const char keys[] = "0123456789ABCD*#";
    static const uint32_t digits[] = {
        LIBVOICE_EVENT_dd_d0, LIBVOICE_EVENT_dd_d1, LIBVOICE_EVENT_dd_d2, LIBVOICE_EVENT_dd_d3,
        LIBVOICE_EVENT_dd_d4, LIBVOICE_EVENT_dd_d5, LIBVOICE_EVENT_dd_d6, LIBVOICE_EVENT_dd_d7,
        LIBVOICE_EVENT_dd_d8, LIBVOICE_EVENT_dd_d9, LIBVOICE_EVENT_dd_da, LIBVOICE_EVENT_dd_db,
        LIBVOICE_EVENT_dd_dc, LIBVOICE_EVENT_dd_dd, LIBVOICE_EVENT_dd_ds, LIBVOICE_EVENT_dd_do,
    };
    for (size_t i = 0; i < sizeof digits / sizeof digits[0]; i++)
        if (head.event == digits[i]) {
            line_digit(line, keys[i]);
            return 0;
        }
    switch (head.event) {
    case LIBVOICE_EVENT_al_of:
        line_off_hook(line);
        return 0;
    case LIBVOICE_EVENT_al_on:
        line_on_hook(line);
        return 0;
    case LIBVOICE_EVENT_al_fl:
        line_flash(line);
        return 0;
    case LIBVOICE_EVENT_dd_ce: { // a whole number at once, as a handset sends it
        char number[kNumberBytes];
        if (!params_text(params, head.length, LIBVOICE_PARAM_dd_ce_ds, number, sizeof number))
            return 1;
        for (const char *digit = number; *digit != 0; digit++)
            if (strchr(keys, *digit) != nullptr)
                line_digit(line, *digit);
        return 0;
    }
    case LIBVOICE_EVENT_zil_call_stats:
        take_statistics(line, &head, params);
        return 0;
    case LIBVOICE_EVENT_g_cause:
        take_cause(line, &head, params);
        return 0;
    case LIBVOICE_EVENT_fxo_ri:
        take_exchange_ring(line, &head, params);
        return 0;
    case LIBVOICE_EVENT_fxo_rh:
        exchange_released(line);
        return 0;
    case LIBVOICE_EVENT_zil_dect_property:
        take_dect_property(line, &head, params);
        return 0;
    default:
        say("event %s of %s ignored", libvoice_param_str(head.event), line->label);
        return 1;
    }
}

// SPDX-License-Identifier: MIT
// What drivers report, as events for the application.
#include "caller_display.h"
#include "line.h"
#include "plugin.h"

#include <string.h>

namespace {

constexpr uint32_t kNumberKeys = 23; // a whole number, as call logic keeps it

bool may_report(const line_t *line) {
    return line->endpoint >= 0 && plugin_is_connected();
}

// An event without parameters.
bool plain_report(const line_t *line, uint32_t event) {
    if (!may_report(line))
        return false;
    return voice_event_report(line->endpoint, event, 0) == nullptr;
}

} // namespace

bool line_report_off_hook(line_t *line) {
    line->off_hook = true;
    return plain_report(line, LIBVOICE_EVENT_al_of);
}

bool line_report_on_hook(line_t *line) {
    line->off_hook = false;
    return plain_report(line, LIBVOICE_EVENT_al_on);
}

void line_report_state(line_t *line) {
    if (!line->off_hook || !may_report(line))
        return;
    voice_event_message_t message;
    voice_event_begin(&message, line->endpoint, LIBVOICE_EVENT_al_of, 0);
    voice_event_add_bool(&message, LIBVOICE_PARAM_al_of_init, 1);
    voice_event_send(&message);
}

bool line_report_flash(line_t *line) {
    return plain_report(line, LIBVOICE_EVENT_al_fl);
}

bool line_report_digit(line_t *line, char key) {
    uint32_t event = voice_key_event(key);
    return event != 0 && plain_report(line, event);
}

bool line_report_number(line_t *line, const char *digits) {
    size_t length = strlen(digits);
    if (length == 0 || length > kNumberKeys || digits[strspn(digits, VOICE_KEYS)] != 0 || !may_report(line))
        return false;
    voice_event_message_t message;
    voice_event_begin(&message, line->endpoint, LIBVOICE_EVENT_dd_ce, 0);
    voice_event_add_text(&message, LIBVOICE_PARAM_dd_ce_ds, digits);
    voice_event_add_text(&message, LIBVOICE_PARAM_dd_ce_meth,
                         "UM"); // unambiguous match: the user has sent a whole number
    return voice_event_send(&message) == nullptr;
}

bool line_report_exchange_ring(line_t *line, const char *number, const char *name) {
    if ((number != nullptr && strlen(number) >= kCallerNumberBytes) ||
        (name != nullptr && strlen(name) >= kCallerNameBytes) || !may_report(line))
        return false;
    // Who calls, as the exchange sends it between two rings: the same block that a telephone's display gets.
    char text[LIBVOICE_DB_TEXT_BYTES];
    uint32_t length = caller_display_encode(number, name, nullptr, text);
    voice_event_message_t message;
    voice_event_begin(&message, line->endpoint, LIBVOICE_EVENT_fxo_ri, 0);
    voice_event_add_bytes(&message, LIBVOICE_PARAM_fxo_ri_cid, text, length);
    return voice_event_send(&message) == nullptr;
}

bool line_report_exchange_release(line_t *line) {
    return plain_report(line, LIBVOICE_EVENT_fxo_rh);
}

bool line_report_property(line_t *line, const line_property_t *property) {
    if (!may_report(line))
        return false;
    voice_event_message_t message;
    voice_event_begin(&message, line->endpoint, LIBVOICE_EVENT_zil_dect_property, 0);
    voice_event_add_text(&message, LIBVOICE_PARAM_zil_dect_property_sw_version, property->software);
    voice_event_add_text(&message, LIBVOICE_PARAM_zil_dect_property_hw_version, property->hardware);
    voice_event_add_i32(&message, LIBVOICE_PARAM_zil_dect_property_reachability_status, property->reachable);
    return voice_event_send(&message) == nullptr;
}

bool line_report_statistics(line_t *line, uint32_t appearance, const line_statistics_t *statistics) {
    if (!may_report(line))
        return false;
    const struct {
        uint32_t id;
        uint32_t value;
    } items[] = {
        {LIBVOICE_PARAM_zil_call_stats_txpkts, statistics->tx_packets},
        {LIBVOICE_PARAM_zil_call_stats_txbytes, statistics->tx_bytes},
        {LIBVOICE_PARAM_zil_call_stats_rxpkts, statistics->rx_packets},
        {LIBVOICE_PARAM_zil_call_stats_rxbytes, statistics->rx_bytes},
        {LIBVOICE_PARAM_zil_call_stats_lost, statistics->lost},
        {LIBVOICE_PARAM_zil_call_stats_discarded, statistics->discarded},
        {LIBVOICE_PARAM_zil_call_stats_txRtcpPkts, statistics->tx_reports},
        {LIBVOICE_PARAM_zil_call_stats_rxRtcpPkts, statistics->rx_reports},
        {LIBVOICE_PARAM_zil_call_stats_overRuns, statistics->overruns},
        {LIBVOICE_PARAM_zil_call_stats_underRuns, statistics->underruns},
        {LIBVOICE_PARAM_zil_call_stats_jitter, statistics->jitter},
        {LIBVOICE_PARAM_zil_call_stats_peakJitter, statistics->peak_jitter},
        {LIBVOICE_PARAM_zil_call_stats_jbMin, statistics->buffer_least_ms},
        {LIBVOICE_PARAM_zil_call_stats_jbAvg, statistics->buffer_mean_ms},
        {LIBVOICE_PARAM_zil_call_stats_jbMax, statistics->buffer_most_ms},
        {LIBVOICE_PARAM_zil_call_stats_latency, statistics->round_trip_ms},
        {LIBVOICE_PARAM_zil_call_stats_peakLatency, statistics->peak_round_trip_ms},
        {LIBVOICE_PARAM_zil_call_stats_tsLastTxRtpInS, statistics->last_tx_s},
        {LIBVOICE_PARAM_zil_call_stats_tsLastTxRtpInUs, statistics->last_tx_us},
        {LIBVOICE_PARAM_zil_call_stats_tsLastRxRtpInS, statistics->last_rx_s},
        {LIBVOICE_PARAM_zil_call_stats_tsLastRxRtpInUs, statistics->last_rx_us},
    };
    voice_event_message_t message;
    voice_event_begin(&message, line->endpoint, LIBVOICE_EVENT_zil_call_stats, appearance);
    for (const auto &item : items)
        voice_event_add_u32(&message, item.id, item.value);
    return voice_event_send(&message) == nullptr;
}

bool line_report_cause(line_t *line, uint32_t appearance, uint32_t cause, const char *why) {
    if (!may_report(line))
        return false;
    return voice_event_report_cause(line->endpoint, appearance, static_cast<int32_t>(cause), why) == nullptr;
}

int line_number(const line_t *line) {
    return line->number;
}

bool line_is_registered(const line_t *line) {
    return line->endpoint >= 0;
}

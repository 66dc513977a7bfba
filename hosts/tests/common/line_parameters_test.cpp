// SPDX-License-Identifier: MIT
// Parameter sets, asked for and set, and what drivers report.
#include "line_fixture.h"

#include "caller_display.h"

#include <stdlib.h>

using fake::bus;

namespace {

class LineParameters : public LineTest {
protected:
    LineParameters() {
        line_ = add();
        init(7);
        news();
    }
    // A set that names an endpoint; items are added before it is sent.
    void begin(int32_t endpoint = 7) {
        block_ = {};
        add_int(LIBVOICE_PARAM_zil_ep_id, endpoint);
    }
    void add_int(uint32_t id, int32_t value) {
        add_bytes(id, std::string(reinterpret_cast<const char *>(&value), sizeof value));
    }
    void add_bytes(uint32_t id, const std::string &value) {
        voice_params_add(block_.buffer, sizeof block_.buffer, &block_.head.length, id, voice_id_value_type(id),
                         value.data(), static_cast<uint32_t>(value.size()));
    }
    int32_t set() { return callbacks_.voice_plugin_set(&block_.head); }
    int32_t get(libvoice_param_set_t **result) { return callbacks_.voice_plugin_get(&block_.head, result, 0); }

    line_t *line_;
    libvoice_param_block_t block_;
};

} // namespace

TEST_F(LineParameters, ValuesComeByTheirType) {
    begin();
    add_int(LIBVOICE_PARAM_tdmc_gain, -3);
    add_bytes(LIBVOICE_PARAM_zil_ep_dispname, std::string("a \"b\"\n\0rest", 11));
    add_bytes(LIBVOICE_PARAM_al_ri_cad, "12345678");
    add_int(LIBVOICE_PARAM_al_of_init, 1);
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(news(), (Texts{"L1 set LIBVOICE_PARAM_tdmc_gain -3", "L1 set LIBVOICE_PARAM_zil_ep_dispname \"a .b..\"",
                             "L1 set LIBVOICE_PARAM_al_ri_cad 8 bytes", "L1 set LIBVOICE_PARAM_al_of_init 1"}));
}

TEST_F(LineParameters, WhatIsNotTakenFailsTheSetAndNotTheRest) {
    begin();
    add_int(LIBVOICE_PARAM_tdmc_rxgain, 1);         // the driver says no
    add_bytes(LIBVOICE_PARAM_tdmc_gain, "12");      // an integer has four bytes
    add_int(LIBVOICE_EVENT_al_of, 1);               // no parameter
    add_bytes(LIBVOICE_PARAM_zil_ep_dispname, "x"); // without its terminator
    EXPECT_EQ(set(), 1);
    EXPECT_EQ(news(), (Texts{"L1 set LIBVOICE_PARAM_tdmc_rxgain 1", "says: 1 ignores param tdmc_rxgain",
                             "says: 1 ignores param tdmc_gain", "says: 1 ignores param LIBVOICE_EVENT_al_of",
                             "L1 set LIBVOICE_PARAM_zil_ep_dispname \"x\""}));
}

TEST_F(LineParameters, LongTextsAreCut) {
    struct {
        libvoice_param_set_t head;
        uint8_t buffer[600];
    } large = {};
    const std::string name(400, 'x');
    const int32_t endpoint = 7;
    ASSERT_EQ(voice_params_add(large.buffer, sizeof large.buffer, &large.head.length, LIBVOICE_PARAM_zil_ep_id,
                               VOICE_VALUE_INTEGER, &endpoint, sizeof endpoint),
              nullptr);
    ASSERT_EQ(voice_params_add(large.buffer, sizeof large.buffer, &large.head.length, LIBVOICE_PARAM_zil_ep_dispname,
                               VOICE_VALUE_STRING, name.data(), static_cast<uint32_t>(name.size())),
              nullptr);
    EXPECT_EQ(callbacks_.voice_plugin_set(&large.head), 0);
    EXPECT_EQ(news(), (Texts{"L1 set LIBVOICE_PARAM_zil_ep_dispname \"" + std::string(255, 'x') + "\""}));
}

TEST_F(LineParameters, SetsOfOtherEndpointsAreRejected) {
    libvoice_param_set_t *result = nullptr;
    for (int32_t endpoint : {-1, 0, 8}) {
        begin(endpoint);
        add_int(LIBVOICE_PARAM_tdmc_gain, 1);
        EXPECT_EQ(set(), 1);
        EXPECT_EQ(get(&result), 1);
    }
    block_ = {}; // names none
    add_int(LIBVOICE_PARAM_tdmc_gain, 1);
    EXPECT_EQ(set(), 1);
    EXPECT_EQ(get(&result), 1);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(news(), Texts{});
}

TEST_F(LineParameters, ABrokenSetEndsWhereItBreaks) {
    begin();
    add_int(LIBVOICE_PARAM_tdmc_gain, 1);
    block_.head.length -= 3;
    EXPECT_EQ(set(), 1);
    EXPECT_EQ(news(), Texts{});
}

TEST_F(LineParameters, WhatTheDriverHasIsAnswered) {
    begin();
    add_int(LIBVOICE_PARAM_tdmc_gain, 0);
    add_int(LIBVOICE_PARAM_tdmc_rxgain, 0);
    add_int(LIBVOICE_PARAM_zil_ep_dispname, 0);
    add_int(LIBVOICE_PARAM_al_ri_cad, 0);
    libvoice_param_set_t *result = nullptr;
    ASSERT_EQ(get(&result), 0);
    ASSERT_NE(result, nullptr);
    const voice_params_t params = voice_set_params(result);
    int32_t value = 0;
    EXPECT_TRUE(voice_params_get_i32(params, LIBVOICE_PARAM_zil_ep_id, &value));
    EXPECT_EQ(value, 7);
    EXPECT_TRUE(voice_params_get_i32(params, LIBVOICE_PARAM_tdmc_gain, &value));
    EXPECT_EQ(value, -3);
    EXPECT_FALSE(voice_params_get_i32(params, LIBVOICE_PARAM_tdmc_rxgain, &value)) << "left out";
    char text[16];
    EXPECT_TRUE(voice_params_get_text(params, LIBVOICE_PARAM_zil_ep_dispname, text, sizeof text));
    EXPECT_STREQ(text, "Study");
    const uint8_t *bytes;
    uint32_t length;
    ASSERT_TRUE(voice_params_get_bytes(params, LIBVOICE_PARAM_al_ri_cad, &bytes, &length));
    EXPECT_EQ(length, 4u);
    EXPECT_EQ(result->length, 12u + 12u + 16u + 12u) << "nothing else";
    free(result); // as the library does
}

TEST_F(LineTest, ADriverWithoutParametersHasNone) {
    const line_driver_t nothing = {};
    add("L1", &nothing);
    init(7);
    news();
    libvoice_param_block_t block;
    voice_set_message_t asked;
    voice_set_begin(&asked, &block, 7);
    ASSERT_TRUE(voice_set_add_i32(&asked, LIBVOICE_PARAM_tdmc_gain, 7));
    EXPECT_EQ(callbacks_.voice_plugin_set(&block.head), 1);
    EXPECT_EQ(news(), (Texts{"says: 1 ignores param tdmc_gain"}));
    libvoice_param_set_t *result = nullptr;
    ASSERT_EQ(callbacks_.voice_plugin_get(&block.head, &result, 0), 0);
    EXPECT_EQ(result->length, 12u) << "the endpoint alone";
    free(result);
}

// ------------------------------------------------------------------------------------------------------------ Reports

TEST_F(LineParameters, HookDigitAndFlashReportsHaveNoParameters) {
    EXPECT_TRUE(line_report_off_hook(line_));
    EXPECT_TRUE(line_report_digit(line_, '#'));
    EXPECT_TRUE(line_report_flash(line_));
    EXPECT_TRUE(line_report_on_hook(line_));
    EXPECT_TRUE(line_report_exchange_release(line_));
    EXPECT_EQ(events(),
              (Texts{"7 LIBVOICE_EVENT_al_of line=0", "7 LIBVOICE_EVENT_dd_do line=0", "7 LIBVOICE_EVENT_al_fl line=0",
                     "7 LIBVOICE_EVENT_al_on line=0", "7 LIBVOICE_EVENT_fxo_rh line=0"}));
}

TEST_F(LineParameters, AWholeNumber) {
    EXPECT_TRUE(line_report_number(line_, "0123456789*#"));
    EXPECT_EQ(events(), (Texts{"7 LIBVOICE_EVENT_dd_ce line=0"}));
    EXPECT_EQ(event_text(LIBVOICE_PARAM_dd_ce_ds), "0123456789*#");
    EXPECT_EQ(event_text(LIBVOICE_PARAM_dd_ce_meth), "UM");
    EXPECT_TRUE(line_report_number(line_, std::string(23, '1').c_str()));
}

TEST_F(LineParameters, TheExchangeRings) {
    EXPECT_TRUE(line_report_exchange_ring(line_, "030123", "Aunt Mary"));
    EXPECT_EQ(events(), (Texts{"7 LIBVOICE_EVENT_fxo_ri line=0"}));
    caller_display caller;
    ASSERT_TRUE(caller_display_decode(event_text(LIBVOICE_PARAM_fxo_ri_cid).c_str(), &caller));
    EXPECT_STREQ(caller.number, "030123");
    EXPECT_STREQ(caller.name, "Aunt Mary");
    EXPECT_TRUE(line_report_exchange_ring(line_, nullptr, nullptr));
    ASSERT_TRUE(caller_display_decode(event_text(LIBVOICE_PARAM_fxo_ri_cid).c_str(), &caller));
    EXPECT_EQ(caller.no_number, 'P');
}

TEST_F(LineParameters, PropertiesOfAHandsetTravelTogether) {
    const line_property_t property = {"2.1.0", "HS-1", true};
    EXPECT_TRUE(line_report_property(line_, &property));
    EXPECT_EQ(events(), (Texts{"7 LIBVOICE_EVENT_zil_dect_property line=0"}));
    EXPECT_EQ(event_text(LIBVOICE_PARAM_zil_dect_property_sw_version), "2.1.0");
    EXPECT_EQ(event_text(LIBVOICE_PARAM_zil_dect_property_hw_version), "HS-1");
    int32_t reachable = 0;
    EXPECT_TRUE(event_int(LIBVOICE_PARAM_zil_dect_property_reachability_status, &reachable));
    EXPECT_EQ(reachable, 1);
}

TEST_F(LineParameters, StatisticsTravelWholeInTheirOrder) {
    line_statistics_t statistics = {};
    uint32_t value_set = 0;
    for (uint32_t *field : {&statistics.tx_packets,
                            &statistics.tx_bytes,
                            &statistics.rx_packets,
                            &statistics.rx_bytes,
                            &statistics.lost,
                            &statistics.discarded,
                            &statistics.overruns,
                            &statistics.underruns,
                            &statistics.tx_reports,
                            &statistics.rx_reports,
                            &statistics.jitter,
                            &statistics.peak_jitter,
                            &statistics.last_tx_s,
                            &statistics.last_tx_us,
                            &statistics.last_rx_s,
                            &statistics.last_rx_us,
                            &statistics.buffer_least_ms,
                            &statistics.buffer_mean_ms,
                            &statistics.buffer_most_ms,
                            &statistics.round_trip_ms,
                            &statistics.peak_round_trip_ms})
        *field = ++value_set;
    EXPECT_TRUE(line_report_statistics(line_, 1, &statistics));
    EXPECT_EQ(events(), (Texts{"7 LIBVOICE_EVENT_zil_call_stats line=1"}));
    const uint32_t ids[] = {
        LIBVOICE_PARAM_zil_call_stats_txpkts,         LIBVOICE_PARAM_zil_call_stats_txbytes,
        LIBVOICE_PARAM_zil_call_stats_rxpkts,         LIBVOICE_PARAM_zil_call_stats_rxbytes,
        LIBVOICE_PARAM_zil_call_stats_lost,           LIBVOICE_PARAM_zil_call_stats_discarded,
        LIBVOICE_PARAM_zil_call_stats_overRuns,       LIBVOICE_PARAM_zil_call_stats_underRuns,
        LIBVOICE_PARAM_zil_call_stats_txRtcpPkts,     LIBVOICE_PARAM_zil_call_stats_rxRtcpPkts,
        LIBVOICE_PARAM_zil_call_stats_jitter,         LIBVOICE_PARAM_zil_call_stats_peakJitter,
        LIBVOICE_PARAM_zil_call_stats_tsLastTxRtpInS, LIBVOICE_PARAM_zil_call_stats_tsLastTxRtpInUs,
        LIBVOICE_PARAM_zil_call_stats_tsLastRxRtpInS, LIBVOICE_PARAM_zil_call_stats_tsLastRxRtpInUs,
        LIBVOICE_PARAM_zil_call_stats_jbMin,          LIBVOICE_PARAM_zil_call_stats_jbAvg,
        LIBVOICE_PARAM_zil_call_stats_jbMax,          LIBVOICE_PARAM_zil_call_stats_latency,
        LIBVOICE_PARAM_zil_call_stats_peakLatency,
    };
    int32_t expected = 1;
    for (uint32_t id : ids) {
        int32_t value = 0;
        EXPECT_TRUE(event_int(id, &value)) << libvoice_param_str(id);
        EXPECT_EQ(value, expected++) << libvoice_param_str(id);
    }
}

TEST_F(LineParameters, CauseTravelsWithItsNumberAndItsText) {
    EXPECT_TRUE(line_report_cause(line_, 1, VOICE_CAUSE_FAILURE_TEMPORARY, "loop current lost"));
    EXPECT_EQ(events(), (Texts{"7 LIBVOICE_EVENT_g_cause line=1"}));
    int32_t cause = 0;
    EXPECT_TRUE(event_int(LIBVOICE_PARAM_g_cause_generalcause, &cause));
    EXPECT_EQ(cause, VOICE_CAUSE_FAILURE_TEMPORARY);
    EXPECT_EQ(event_text(LIBVOICE_PARAM_g_cause_failurecause), "loop current lost");
}

TEST_F(LineParameters, WhatCannotBeSentIsNot) {
    EXPECT_FALSE(line_report_digit(line_, 'x'));
    EXPECT_FALSE(line_report_number(line_, ""));
    EXPECT_FALSE(line_report_number(line_, "12a"));
    EXPECT_FALSE(line_report_number(line_, std::string(24, '1').c_str()));
    EXPECT_FALSE(line_report_exchange_ring(line_, std::string(21, '1').c_str(), nullptr));
    EXPECT_FALSE(line_report_exchange_ring(line_, "1", std::string(51, 'x').c_str()));
    EXPECT_EQ(events(), Texts{});
}

TEST_F(LineParameters, WithoutAnApplicationNothingIsSent) {
    const line_property_t property = {"1", "2", true};
    const line_statistics_t statistics = {};
    libvoice_set_kex_peer_handler(nullptr);
    EXPECT_FALSE(line_report_off_hook(line_));
    EXPECT_FALSE(line_report_number(line_, "1"));
    EXPECT_FALSE(line_report_exchange_ring(line_, "1", nullptr));
    EXPECT_FALSE(line_report_property(line_, &property));
    EXPECT_FALSE(line_report_statistics(line_, 0, &statistics));
    EXPECT_FALSE(line_report_cause(line_, 0, VOICE_CAUSE_UNSUPPORTED, "x"));
    EXPECT_EQ(bus().requests_made(), 1u) << "the registration";
}

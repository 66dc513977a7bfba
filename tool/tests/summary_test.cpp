// SPDX-License-Identifier: MIT
// Items that belong together, said as one.
#include "summary.h"

#include <gtest/gtest.h>

#include "libvoice_plugin.h"
#include "samples.h"

namespace voicectl {

namespace {

std::vector<std::string> summary(RecordKind kind, const Bytes &bytes) {
    return items_summary(record_read(kind, bytes));
}

using Words = std::vector<std::string>;

TEST(Summary, WithoutAValueThereIsTheLabel) {
    Bytes parameters;
    add_item(parameters, LIBVOICE_PARAM_tdmc_gain, {});
    add_item(parameters, LIBVOICE_PARAM_al_ri_freq, {});
    EXPECT_EQ(summary(RecordKind::param_set, set_bytes(parameters)), (Words{"gain", "ring frequency"}));
}

TEST(Summary, StatisticsOfACallStandTogether) {
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_zil_call_stats_txpkts, 35);
    add_word(parameters, LIBVOICE_PARAM_zil_call_stats_txbytes, 5600);
    add_word(parameters, LIBVOICE_PARAM_zil_call_stats_rxpkts, 34);
    add_word(parameters, LIBVOICE_PARAM_zil_call_stats_rxbytes, 5440);
    add_word(parameters, LIBVOICE_PARAM_zil_call_stats_lost, 0);
    add_word(parameters, LIBVOICE_PARAM_zil_call_stats_discarded, 0);
    add_word(parameters, LIBVOICE_PARAM_zil_call_stats_jitter, 12);
    EXPECT_EQ(summary(RecordKind::event, event_bytes(0, LIBVOICE_EVENT_zil_call_stats, parameters)),
              (Words{"sent 35 packets (5600 bytes)", "received 34 (5440)", "lost 0", "jitter 12"}));
}

TEST(Summary, StatisticsWithHolesStaySingle) {
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_zil_call_stats_txpkts, 35);
    add_item(parameters, LIBVOICE_PARAM_zil_call_stats_txbytes, {});
    EXPECT_EQ(summary(RecordKind::event, event_bytes(0, LIBVOICE_EVENT_zil_call_stats, parameters)),
              (Words{"packets sent 35", "bytes sent"}));
}

Bytes media(uint32_t up, uint32_t down) {
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_sdp_stream_mode, 1);
    for (const auto &[id, word] :
         std::initializer_list<std::pair<uint32_t, uint32_t>>{{LIBVOICE_PARAM_sdp_upstream_codec, up},
                                                              {LIBVOICE_PARAM_sdp_upstream_ptime, 20},
                                                              {LIBVOICE_PARAM_sdp_upstream_payload, up},
                                                              {LIBVOICE_PARAM_sdp_downstream_codec, down},
                                                              {LIBVOICE_PARAM_sdp_downstream_ptime, 20},
                                                              {LIBVOICE_PARAM_sdp_downstream_payload, down}})
        add_word(parameters, id, word);
    add_word(parameters, LIBVOICE_PARAM_sdp_ecan_enable, 1);
    Bytes connection;
    append_word(connection, 1);
    append_word(connection, static_cast<uint32_t>(parameters.size()));
    connection.insert(connection.end(), parameters.begin(), parameters.end());
    connection.resize(704);
    return connection;
}

TEST(Summary, MediaOfBothDirectionsTogether) {
    EXPECT_EQ(summary(RecordKind::connection, media(8, 8)),
              (Words{"send only", "PCMA 20 ms payload 8", "echo cancellation true"}));
    EXPECT_EQ(
        summary(RecordKind::connection, media(8, 0)),
        (Words{"send only", "sends PCMA 20 ms payload 8", "receives PCMU 20 ms payload 0", "echo cancellation true"}));
}

TEST(Summary, UnknownItemShowsItsNumber) {
    Bytes parameters;
    add_word(parameters, 0x11FFFF01, 1);
    EXPECT_EQ(summary(RecordKind::param_set, set_bytes(parameters)), Words{"???? 0x11ffff01 1"});
}

} // namespace

} // namespace voicectl

// SPDX-License-Identifier: MIT
// What plugins report of media that has ended, as output and as a table.
#include "application.h"
#include "statistics.h"

#include <iterator>
#include <sstream>

using application_test::ApplicationTest;
using application_test::item;
using application_test::word;

namespace {

class Statistics : public ApplicationTest {
protected:
    int32_t line, second;

    Statistics() {
        app().register_plugin("fxs1");
        line = app().register_endpoint("fxs1", "FXS1", VOICE_ENDPOINT_FXS);
        second = app().register_endpoint("fxs1", "FXS2", VOICE_ENDPOINT_FXS);
        app().said();
    }
    void report(uint32_t packets, uint32_t appearance = 0) {
        app().event(line, LIBVOICE_EVENT_zil_call_stats,
                    item(LIBVOICE_PARAM_zil_call_stats_txpkts, word(packets)) +
                        item(LIBVOICE_PARAM_zil_call_stats_txbytes, word(8000)) +
                        item(LIBVOICE_PARAM_zil_call_stats_rxpkts, word(49)) +
                        item(LIBVOICE_PARAM_zil_call_stats_rxbytes, word(7840)) +
                        item(LIBVOICE_PARAM_zil_call_stats_lost, word(1)) +
                        item(LIBVOICE_PARAM_zil_call_stats_discarded, word(2)) +
                        item(LIBVOICE_PARAM_zil_call_stats_jitter, word(3)) +
                        item(LIBVOICE_PARAM_zil_call_stats_overRuns, word(4)) +
                        item(LIBVOICE_PARAM_zil_call_stats_underRuns, word(5)) +
                        item(LIBVOICE_PARAM_zil_call_stats_jbMin, word(38)) +
                        item(LIBVOICE_PARAM_zil_call_stats_jbAvg, word(40)) +
                        item(LIBVOICE_PARAM_zil_call_stats_jbMax, word(190)) +
                        item(LIBVOICE_PARAM_zil_call_stats_latency, word(12)),
                    appearance);
    }
};

TEST_F(Statistics, AreSaidWithTheirCall) {
    report(50);
    EXPECT_LINES(app().said(),
                 "stats call=N line=101 tx=50 txbytes=8000 rx=49 rxbytes=7840 lost=1 discarded=2 jitter=3 "
                 "overruns=4 underruns=5 jbmin=38 jbavg=40 jbmax=190 latency=12");
}

TEST_F(Statistics, WhatIsNotReportedIsZero) {
    app().event(line, LIBVOICE_EVENT_zil_call_stats, item(LIBVOICE_PARAM_zil_call_stats_lost, word(7)));
    EXPECT_LINES(app().said(), "stats call=N line=101 tx=0 txbytes=0 rx=0 rxbytes=0 lost=7 discarded=0 jitter=0 "
                               "overruns=0 underruns=0 jbmin=0 jbavg=0 jbmax=0 latency=0");
}

// 8,000 bytes a second are 2 GiB after three days.
TEST_F(Statistics, CountWithoutASign) {
    app().event(line, LIBVOICE_EVENT_zil_call_stats, item(LIBVOICE_PARAM_zil_call_stats_txbytes, word(0xFFFFFFFF)));
    EXPECT_LINES(app().said(), "stats call=N line=101 tx=0 txbytes=4294967295 rx=0 rxbytes=0 lost=0 discarded=0 "
                               "jitter=0 overruns=0 underruns=0 jbmin=0 jbavg=0 jbmax=0 latency=0");
    statistics_print();
    EXPECT_NE(app().said().back().find(" 4294967295 "), std::string::npos);
}

// They arrive after the end of the call, when the line may have another one.
TEST_F(Statistics, BelongToTheLastCallOfTheirAppearance) {
    app().event(line, LIBVOICE_EVENT_al_of);
    app().dial(line, "102");
    app().event(second, LIBVOICE_EVENT_al_of);
    const uint32_t call = line_of_endpoint(line)->last_call[0];
    EXPECT_NE(call, 0u);
    app().event(line, LIBVOICE_EVENT_al_on);
    report(50);
    report(51, 1);
    report(52, 2);
    app().said();
    statistics_print();
    const std::vector<std::string> table = app().said();
    const auto call_of = [&](size_t from_the_end) { return std::stoul(table[table.size() - from_the_end]); };
    EXPECT_EQ(call_of(3), call);
    EXPECT_EQ(call_of(2), 0u) << "the second appearance has had none";
    EXPECT_EQ(call_of(1), 0u) << "there is no third one";
}

TEST_F(Statistics, BelongToTheCallThatEndedWhenTheNextOneRingsAlready) {
    app().event(second, LIBVOICE_EVENT_al_of);
    app().dial(second, "101");
    app().event(line, LIBVOICE_EVENT_al_of);
    const uint32_t call = line_of_endpoint(line)->last_call[0];
    app().event(line, LIBVOICE_EVENT_al_on);
    app().event(second, LIBVOICE_EVENT_al_on);
    app().event(second, LIBVOICE_EVENT_al_of);
    app().dial(second, "101");
    ASSERT_EQ(app().state(line), "ringing");
    report(50);
    app().said();
    statistics_print();
    EXPECT_EQ(std::stoul(app().said().back()), call);
}

TEST_F(Statistics, TableHoldsTheLastThirtyTwo) {
    for (uint32_t packets = 1; packets <= 40; packets++)
        report(packets);
    app().said();
    statistics_print();
    const std::vector<std::string> table = app().said();
    ASSERT_EQ(table.size(), 33u);
    const auto words = [](const std::string &line) {
        std::istringstream all(line);
        return std::vector<std::string>(std::istream_iterator<std::string>(all), {});
    };
    const std::vector<std::string> names = words(table[0]);
    EXPECT_EQ(names,
              (std::vector<std::string>{"call", "line", "tx", "txbytes", "rx", "rxbytes", "lost", "discarded", "jitter",
                                        "overruns", "underruns", "jbmin", "jbavg", "jbmax", "latency"}));
    for (int row : {1, 32})
        EXPECT_EQ(words(table[static_cast<size_t>(row)]),
                  (std::vector<std::string>{"0", "101", row == 1 ? "9" : "40", "8000", "49", "7840", "1", "2", "3", "4",
                                            "5", "38", "40", "190", "12"}));
    EXPECT_EQ(table[0].size(), table[1].size()) << "columns stand below their names";
}

} // namespace

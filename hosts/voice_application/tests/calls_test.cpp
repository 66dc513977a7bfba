// SPDX-License-Identifier: MIT
// What is said of a call, what the callee's display shows, and how many calls there can be.
#include "application.h"
#include "caller_display.h"
#include "calls.h"

#include <cstring>
#include <gmock/gmock.h>

using application_test::ApplicationTest;
using application_test::item;
using application_test::kG722;
using application_test::word;
using fake::bus;
using testing::Contains;

namespace {

class Calls : public ApplicationTest {
protected:
    Calls() {
        app().register_plugin("fxs1");
        app().said();
    }
    int32_t telephone(const std::string &name) { return app().register_endpoint("fxs1", name, VOICE_ENDPOINT_FXS); }
    void call(int32_t from, const std::string &number) {
        app().event(from, LIBVOICE_EVENT_al_of);
        app().dial(from, number);
    }
    // What the last display shows.
    caller_display displayed() {
        const std::string params = app().params_of_signal(LIBVOICE_SIGNAL_andisp_data);
        caller_display display = {};
        uint32_t length = 0;
        EXPECT_GT(params.size(), 8u);
        memcpy(&length, params.data() + 4, sizeof length);
        EXPECT_EQ(params.substr(0, 4), word(LIBVOICE_PARAM_andisp_data_db));
        EXPECT_EQ(params[8 + length - 1], 0) << "the terminator travels too";
        EXPECT_TRUE(caller_display_decode(params.substr(8, length - 1).c_str(), &display));
        return display;
    }
};

TEST_F(Calls, AreSaidFromRingingToTheirEnd) {
    const int32_t from = telephone("FXS1"), to = telephone("FXS2");
    app().said();
    call(from, "102");
    EXPECT_LINES(app().said(), "line 101 dial-tone", "line 101 collecting", "call N 101->102 ringing",
                 "line 101 calling", "line 102 ringing");
    app().event(to, LIBVOICE_EVENT_al_of);
    EXPECT_LINES(app().said(), "call N 101->102 answered codec=PCMA", "line 101 talking", "line 102 talking");
    app().event(from, LIBVOICE_EVENT_al_fl);
    EXPECT_LINES(app().said(), "call N 101->102 held by 101", "line 102 held", "line 101 dial-tone");
    app().event(from, LIBVOICE_EVENT_al_fl);
    EXPECT_LINES(app().said(), "line 102 talking", "call N 101->102 resumed", "line 101 talking");
    app().event(from, LIBVOICE_EVENT_al_on);
    EXPECT_LINES(app().said(), "call N 101->102 ended: 101 hung up", "line 102 busy", "line 101 idle");
}

struct Rejection {
    const char *number, *said, *tone;
};

TEST_F(Calls, ThatDoNotComeAboutAreSaidWithAReasonAndATone) {
    strcpy(the_plan.numbers[0].number, "555");
    strcpy(the_plan.numbers[0].endpoint, "FXS9");
    the_plan.number_count = 1;
    const int32_t from = telephone("FXS1"), busy = telephone("FXS2");
    app().register_endpoint("fxs1", "FXS3", VOICE_ENDPOINT_FXS, {kG722});
    app().event(busy, LIBVOICE_EVENT_al_of);
    const Rejection rows[] = {
        {"9", "call N 101->9 refused: unknown number", "cg_sit"},
        {"102", "call N 101->102 refused: busy", "cg_bt"},
        {"101", "call N 101->101 refused: busy", "cg_bt"},
        {"103", "call N 101->103 refused: no common codec", "cg_ct"},
        {"555", "call N 101->555 refused: not registered", "cg_sit"},
        {"05#", "call N 101->05 refused: no exchange line is free", "cg_ct"},
    };
    for (const Rejection &row : rows) {
        app().event(from, LIBVOICE_EVENT_al_of);
        app().sent();
        app().said();
        app().dial(from, row.number);
        EXPECT_THAT(app().said(), Contains(row.said));
        EXPECT_EQ(app().sent(), std::string("FXS1: silence, ") + row.tone) << row.number;
        app().event(from, LIBVOICE_EVENT_al_on);
    }
}

TEST_F(Calls, BeyondTheLastArePutOff) {
    std::vector<int32_t> lines;
    for (int i = 1; i <= 27; i++)
        lines.push_back(telephone("FXS" + std::to_string(20 + i)));
    const auto number = [&](size_t i) { return std::string(line_of_endpoint(lines[i])->number); };
    // Three lines hold two calls: one on hold, one ringing.
    for (size_t i = 0; i < 24; i += 3) {
        call(lines[i], number(i + 1));
        app().event(lines[i + 1], LIBVOICE_EVENT_al_of);
        app().event(lines[i], LIBVOICE_EVENT_al_fl);
        app().dial(lines[i], number(i + 2));
        EXPECT_EQ(app().state(lines[i + 2]), "ringing") << i;
    }
    app().said();
    app().sent();
    call(lines[24], number(25));
    EXPECT_THAT(app().said(), Contains("call N 145->146 refused: too many calls"));
    EXPECT_EQ(app().sent(), "FXS45: cg_dt, silence, cg_ct");
    app().event(lines[0], LIBVOICE_EVENT_al_on);
    app().event(lines[24], LIBVOICE_EVENT_al_on);
    call(lines[24], number(25));
    EXPECT_EQ(app().state(lines[25]), "ringing") << "there is room again";
}

TEST_F(Calls, RingWithACadenceAndShowTheCallerBetweenTwoRings) {
    strcpy(the_plan.numbers[0].number, "101");
    strcpy(the_plan.numbers[0].endpoint, "FXS1");
    strcpy(the_plan.numbers[0].name, "Kitchen");
    the_plan.number_count = 1;
    const int32_t from = telephone("FXS1");
    telephone("FXS2");
    call(from, "102");
    EXPECT_EQ(app().params_of_signal(LIBVOICE_SIGNAL_al_ri).substr(0, 16),
              item(LIBVOICE_PARAM_al_ri_cad, word(1000) + word(4000)));
    app().sent();
    bus().advance(1499);
    EXPECT_EQ(app().sent(), "");
    bus().advance(1);
    EXPECT_EQ(app().sent(), "FXS2: andisp_data");
    EXPECT_STREQ(displayed().number, "101");
    EXPECT_STREQ(displayed().name, "Kitchen");
    EXPECT_STREQ(displayed().called, "102");
    EXPECT_EQ(strlen(displayed().time), 8u);
}

TEST_F(Calls, OfALineWithoutANumberShowThatItIsWithheld) {
    telephone("FXS1");
    const int32_t nameless = app().register_endpoint("fxs1", "DOOR0", VOICE_ENDPOINT_FXS);
    ASSERT_STREQ(line_of_endpoint(nameless)->number, "");
    call(nameless, "101");
    bus().advance(1500);
    EXPECT_STREQ(displayed().number, "");
    EXPECT_EQ(displayed().no_number, 'P');
    EXPECT_STREQ(displayed().name, "DOOR0");
}

TEST_F(Calls, OfTheExchangeShowWhoCallsThere) {
    const char number[] = "030123", name[] = "Aunt Mary";
    char block[LIBVOICE_DB_TEXT_BYTES];
    const uint32_t length = caller_display_encode(number, name, nullptr, block);
    telephone("FXS1");
    app().register_plugin("fxo1");
    const int32_t exchange = app().register_endpoint("fxo1", "FXO1", VOICE_ENDPOINT_FXO);
    app().event(exchange, LIBVOICE_EVENT_fxo_ri, item(LIBVOICE_PARAM_fxo_ri_cid, std::string(block, length)));
    bus().advance(1500);
    EXPECT_STREQ(displayed().number, number);
    EXPECT_STREQ(displayed().name, name);
}

// Exchanges send it between the first and the second ring.
TEST_F(Calls, OfTheExchangeShowACallerWhomOnlyALaterRingNames) {
    char block[LIBVOICE_DB_TEXT_BYTES];
    const uint32_t length = caller_display_encode("030123", "Aunt Mary", nullptr, block);
    const std::string named = item(LIBVOICE_PARAM_fxo_ri_cid, std::string(block, length));
    telephone("FXS1");
    app().register_plugin("fxo1");
    const int32_t exchange = app().register_endpoint("fxo1", "FXO1", VOICE_ENDPOINT_FXO);
    app().event(exchange, LIBVOICE_EVENT_fxo_ri);
    bus().advance(1500);
    EXPECT_EQ(displayed().no_number, 'P');
    bus().advance(3500);
    app().sent();
    app().event(exchange, LIBVOICE_EVENT_fxo_ri);
    EXPECT_EQ(app().sent(), "");
    app().event(exchange, LIBVOICE_EVENT_fxo_ri, named);
    EXPECT_EQ(app().sent(), "FXS1: andisp_data");
    EXPECT_STREQ(displayed().number, "030123");
    EXPECT_STREQ(displayed().name, "Aunt Mary");
    app().event(exchange, LIBVOICE_EVENT_fxo_ri, named);
    EXPECT_EQ(app().sent(), "") << "once";
}

TEST_F(Calls, OfTheExchangeThatNameTheCallerBeforeTheDisplayShowItOnce) {
    char block[LIBVOICE_DB_TEXT_BYTES];
    const uint32_t length = caller_display_encode("030123", "", nullptr, block);
    telephone("FXS1");
    app().register_plugin("fxo1");
    const int32_t exchange = app().register_endpoint("fxo1", "FXO1", VOICE_ENDPOINT_FXO);
    app().event(exchange, LIBVOICE_EVENT_fxo_ri);
    bus().advance(1400);
    app().sent();
    app().event(exchange, LIBVOICE_EVENT_fxo_ri, item(LIBVOICE_PARAM_fxo_ri_cid, std::string(block, length)));
    EXPECT_EQ(app().sent(), "");
    bus().advance(100);
    EXPECT_EQ(app().sent(), "FXS1: andisp_data");
    EXPECT_STREQ(displayed().number, "030123");
}

TEST_F(Calls, OfTheExchangeWithABrokenBlockAreRungAllTheSame) {
    const int32_t to = telephone("FXS1");
    app().register_plugin("fxo1");
    const int32_t exchange = app().register_endpoint("fxo1", "FXO1", VOICE_ENDPOINT_FXO);
    app().event(exchange, LIBVOICE_EVENT_fxo_ri, item(LIBVOICE_PARAM_fxo_ri_cid, std::string("8000zz\0", 7)));
    EXPECT_EQ(app().state(to), "ringing");
    bus().advance(1500);
    EXPECT_EQ(displayed().no_number, 'P');
}

TEST_F(Calls, FailureOfAPluginIsSaidWithItsCause) {
    const int32_t from = telephone("FXS1"), to = telephone("FXS2");
    call(from, "102");
    app().event(to, LIBVOICE_EVENT_al_of);
    app().said();
    app().event(to, LIBVOICE_EVENT_g_cause,
                item(LIBVOICE_PARAM_g_cause_generalcause, word(VOICE_CAUSE_UNSUPPORTED)) +
                    item(LIBVOICE_PARAM_g_cause_failurecause, std::string("no G729 here\0", 13)));
    EXPECT_THAT(app().said(), Contains("call N 101->102 ended: 102: no G729 here (cause 6)"));
}

TEST_F(Calls, EndWithTheConnectionOfAParty) {
    const int32_t from = telephone("FXS1");
    app().register_plugin("fxs2");
    const int32_t to = app().register_endpoint("fxs2", "FXS1", VOICE_ENDPOINT_FXS);
    call(from, "201");
    app().event(to, LIBVOICE_EVENT_al_of);
    app().said();
    app().close("fxs2");
    EXPECT_LINES(app().said(), "plugin fxs2 lost", "endpoint 1 fxs2.FXS1 gone", "call N 101->201 ended: 201 is gone",
                 "line 101 busy");
}

TEST_F(Calls, OfTwoLinesOfALostPluginEndWithoutAWord) {
    const int32_t from = telephone("FXS1"), to = telephone("FXS2");
    call(from, "102");
    app().event(to, LIBVOICE_EVENT_al_of);
    app().event(from, LIBVOICE_EVENT_al_fl);
    bus().clear_log();
    app().close("fxs1");
    EXPECT_LINES(bus().complaints(), ); // nothing was tried that cannot be sent
    EXPECT_EQ(app().state(from), "gone");
    EXPECT_EQ(app().state(to), "gone");
}

TEST_F(Calls, ThatNobodyAnswersEndAfterTwoMinutes) {
    const int32_t from = telephone("FXS1"), to = telephone("FXS2");
    call(from, "102");
    app().said();
    bus().advance(121499);
    EXPECT_LINES(app().said(), );
    bus().advance(1);
    EXPECT_LINES(app().said(), "call N 101->102 ended: no answer", "line 101 busy", "line 102 idle");
    EXPECT_EQ(app().state(to), "idle");
}

} // namespace

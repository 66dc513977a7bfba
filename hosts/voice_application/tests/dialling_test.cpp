// SPDX-License-Identifier: MIT
// Whole numbers at once, numbers that are too long, handsets that do not answer, and receivers that nobody puts back.
#include "application.h"

#include <cstring>

using application_test::ApplicationTest;
using application_test::item;
using application_test::kPcma;
using application_test::kPcmu;
using application_test::word;
using fake::bus;

namespace {

class Dialling : public ApplicationTest {
protected:
    int32_t first, second, handset;

    Dialling() {
        app().register_plugin("fxs1");
        app().register_plugin("fxs4");
        first = app().register_endpoint("fxs1", "FXS1", VOICE_ENDPOINT_FXS, {kPcma}, "101");
        second = app().register_endpoint("fxs1", "FXS2", VOICE_ENDPOINT_FXS, {kPcma}, "102");
        handset = app().register_endpoint("fxs4", "FXS1", VOICE_ENDPOINT_FXS, {kPcma}, "401");
        app().sent();
        app().said();
    }
    void lift(int32_t line) { app().event(line, LIBVOICE_EVENT_al_of); }
    void number(int32_t line, const std::string &digits, const char *method = nullptr) {
        std::string params = item(LIBVOICE_PARAM_dd_ce_ds, digits + '\0');
        if (method != nullptr)
            params += item(LIBVOICE_PARAM_dd_ce_meth, std::string(method) + '\0');
        app().event(line, LIBVOICE_EVENT_dd_ce, params);
    }
    void reach(bool reachable) {
        app().event(handset, LIBVOICE_EVENT_zil_dect_property,
                    item(LIBVOICE_PARAM_zil_dect_property_reachability_status, word(reachable)));
    }
};

} // namespace

TEST_F(Dialling, AWholeNumberIsCalledAtOnce) {
    app().register_endpoint("fxs1", "FXS3", VOICE_ENDPOINT_FXS);           // 103
    std::strcpy(the_plan.numbers[the_plan.number_count++].number, "1022"); // so that 102 may go on
    lift(handset);
    number(handset, "102");
    EXPECT_EQ(app().state(second), "ringing");
}

TEST_F(Dialling, AWholeNumberThatIsNobodysIsRefusedAtOnce) {
    lift(handset);
    app().said();
    number(handset, "10");
    EXPECT_EQ(app().said().front(), "line 401 collecting");
    EXPECT_EQ(app().state(handset), "busy") << "nothing will follow it";
}

TEST_F(Dialling, AHashBehindAWholeNumberEndsItToo) {
    lift(handset);
    number(handset, "102#");
    EXPECT_EQ(app().state(second), "ringing");
}

TEST_F(Dialling, TheTwentyFourthDigitIsRefusedWithAReason) {
    app().register_plugin("fxo1");
    const int32_t line = app().register_endpoint("fxo1", "FXO1", VOICE_ENDPOINT_FXO);
    lift(first);
    app().dial(first, "0" + std::string(22, '3'));
    EXPECT_EQ(app().state(first), "collecting");
    app().said();
    app().dial(first, "4");
    EXPECT_LINES(app().said(), "call N 101->0" + std::string(22, '3') + " refused: number too long: 23 digits at most",
                 "line 101 busy");
    EXPECT_EQ(app().state(line), "idle") << "a number that was cut is not dialled";
    lift(handset);
    app().said();
    number(handset, "0" + std::string(23, '3'));
    EXPECT_LINES(app().said(), "line 401 collecting",
                 "call N 401->0" + std::string(22, '3') + " refused: number too long: 23 digits at most",
                 "line 401 busy");
    app().event(handset, LIBVOICE_EVENT_al_on);
    lift(handset);
    number(handset, "0" + std::string(22, '3'));
    EXPECT_EQ(app().state(handset), "talking");
}

TEST_F(Dialling, AHandsetThatDoesNotAnswerItsBaseIsNotCalled) {
    reach(false);
    lift(first);
    app().sent();
    app().said();
    app().dial(first, "401");
    EXPECT_EQ(app().said()[1], "call N 101->401 refused: no answer from the handset");
    EXPECT_EQ(app().sent(), "101: silence, cg_ct");
    app().event(first, LIBVOICE_EVENT_al_on);
    reach(true);
    lift(first);
    app().dial(first, "401");
    EXPECT_EQ(app().state(handset), "ringing");
}

// It rings no more: the caller would wait for two minutes, also when it comes back.
TEST_F(Dialling, AHandsetThatGoesOutOfReachWhileItRingsEndsTheCall) {
    lift(first);
    app().dial(first, "401");
    app().sent();
    app().said();
    reach(false);
    EXPECT_LINES(app().said(), "handset 401 software=? hardware=? reachable=no",
                 "call N 101->401 ended: no answer from the handset", "line 101 busy", "line 401 idle");
    EXPECT_EQ(app().sent(), "101: cg_bt | 401: silence");
}

TEST_F(Dialling, ACallOfTheExchangeIsOfferedToAnotherOneWhenItsHandsetGoesOutOfReach) {
    app().register_plugin("fxo1");
    const int32_t line = app().register_endpoint("fxo1", "FXO1", VOICE_ENDPOINT_FXO);
    lift(first);
    lift(second);
    app().event(line, LIBVOICE_EVENT_fxo_ri);
    ASSERT_EQ(app().state(handset), "ringing");
    reach(false);
    EXPECT_EQ(app().state(handset), "idle");
    app().event(first, LIBVOICE_EVENT_al_on);
    app().event(line, LIBVOICE_EVENT_fxo_ri);
    EXPECT_EQ(app().state(first), "ringing");
}

TEST_F(Dialling, AHandsetThatTalksMayGoOutOfReachForAWhile) {
    lift(first);
    app().dial(first, "401");
    lift(handset);
    reach(false);
    EXPECT_EQ(app().state(handset), "talking");
    reach(true);
    EXPECT_EQ(app().state(first), "talking");
}

TEST_F(Dialling, TheExchangeDoesNotRingAHandsetThatDoesNotAnswer) {
    app().register_plugin("fxo1");
    const int32_t line = app().register_endpoint("fxo1", "FXO1", VOICE_ENDPOINT_FXO);
    std::strcpy(the_plan.incoming_number, "401");
    reach(false);
    app().said();
    app().event(line, LIBVOICE_EVENT_fxo_ri);
    EXPECT_LINES(app().said(), "call N fxo1.FXO1->401 refused: no answer from the handset");
}

// 20 s of dial tone, busy tone, and a minute later a tone that calls him back who forgot to hang up.
TEST_F(Dialling, AReceiverThatNobodyPutsBackIsRemindedOf) {
    lift(first);
    bus().advance(20000);
    EXPECT_EQ(app().state(first), "busy");
    app().sent();
    bus().advance(59999);
    EXPECT_EQ(app().sent(), "");
    bus().advance(1);
    EXPECT_EQ(app().sent(), "101: tonegen_pt");
    const std::string list = app().params_of_signal(LIBVOICE_SIGNAL_tonegen_pt);
    EXPECT_NE(list.find(word(1400)), std::string::npos);
    bus().advance(59999);
    EXPECT_EQ(app().sent(), "");
    bus().advance(1);
    EXPECT_EQ(app().sent(), "101: silence");
    bus().advance(600000);
    EXPECT_EQ(app().sent(), "") << "that was all";
    app().event(first, LIBVOICE_EVENT_al_on);
    EXPECT_EQ(app().state(first), "idle");
}

TEST_F(Dialling, WhoStaysBehindWhenTheOtherOneHangsUpIsRemindedTo) {
    lift(first);
    app().dial(first, "102");
    lift(second);
    app().event(second, LIBVOICE_EVENT_al_on);
    EXPECT_EQ(app().state(first), "busy");
    app().sent();
    bus().advance(59999);
    EXPECT_EQ(app().sent(), "");
    bus().advance(1);
    EXPECT_EQ(app().sent(), "101: tonegen_pt");
    bus().advance(60000);
    EXPECT_EQ(app().sent(), "101: silence");
}

// With somebody on hold too: a flash ends the reminder, and goes back.
TEST_F(Dialling, WhoGoesBackToAHeldCallIsNotRemindedAnyMore) {
    lift(first);
    app().dial(first, "102");
    lift(second);
    app().event(first, LIBVOICE_EVENT_al_fl);
    app().dial(first, "401");
    lift(handset);
    app().event(handset, LIBVOICE_EVENT_al_on);
    EXPECT_EQ(app().state(first), "busy");
    app().event(first, LIBVOICE_EVENT_al_fl);
    EXPECT_EQ(app().state(first), "talking");
    app().sent();
    bus().advance(120000);
    EXPECT_EQ(app().sent(), "");
}

TEST_F(Dialling, WhoHangsUpInTimeIsNotRemindedOf) {
    lift(first);
    bus().advance(20000);
    app().event(first, LIBVOICE_EVENT_al_on);
    lift(first);
    app().dial(first, "102");
    app().sent();
    bus().advance(60000);
    EXPECT_EQ(app().sent().find("tonegen"), std::string::npos);
}

// A codec list may name what goes beside a voice. It is never the call's codec.
TEST_F(Dialling, TelephoneEventsAndComfortNoiseAreNoCodecsOfACall) {
    const voice_codec_t events = {LIBVOICE_CODEC_TELEPHONE_EVENT, 97, VOICE_PTIME_20MS, 0};
    const voice_codec_t noise = {LIBVOICE_CODEC_CN, 13, VOICE_PTIME_20MS, 0};
    const voice_codec_t redundant = {LIBVOICE_CODEC_RED, 98, VOICE_PTIME_20MS, 0};
    const int32_t one =
        app().register_endpoint("fxs1", "FXS4", VOICE_ENDPOINT_FXS, {events, noise, redundant, kPcmu}, "104");
    const int32_t other =
        app().register_endpoint("fxs1", "FXS5", VOICE_ENDPOINT_FXS, {redundant, events, noise, kPcmu}, "105");
    const int32_t bare = app().register_endpoint("fxs1", "FXS6", VOICE_ENDPOINT_FXS, {events, noise}, "106");
    lift(one);
    app().dial(one, "105");
    app().said();
    lift(other);
    EXPECT_EQ(app().said().front(), "call N 104->105 answered codec=PCMU");
    lift(bare);
    app().said();
    app().dial(bare, "101");
    EXPECT_EQ(app().said()[1], "call N 106->101 refused: no common codec");
}

// The cadence of the country, and the display when its first ring is over.
TEST_F(Dialling, TelephonesRingByTheCountry) {
    std::strcpy(the_plan.country, "GB");
    lift(first);
    app().dial(first, "102");
    const std::string ring = app().params_of_signal(LIBVOICE_SIGNAL_al_ri);
    EXPECT_NE(ring.find(word(400) + word(200) + word(400) + word(2000)), std::string::npos);
    app().sent();
    bus().advance(1499);
    EXPECT_EQ(app().sent(), "");
    bus().advance(1);
    EXPECT_EQ(app().sent(), "102: andisp_data") << "after the double ring";
}

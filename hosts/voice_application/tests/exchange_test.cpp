// SPDX-License-Identifier: MIT
// Lines to the exchange: whom an incoming call rings, which line takes an outgoing one, and events that they do not
// have.
#include "application.h"

#include <cstring>

using application_test::ApplicationTest;
using application_test::kPcma;
using fake::bus;
using testing::Test;

namespace {

class Exchange : public ApplicationTest {
protected:
    Exchange() {
        app().register_plugin("fxs1");
        app().register_plugin("fxo1");
    }
    int32_t telephone(const char *name, const char *number) {
        set_number(name, number);
        return app().register_endpoint("fxs1", name, VOICE_ENDPOINT_FXS);
    }
    int32_t exchange_line(const char *name) { return app().register_endpoint("fxo1", name, VOICE_ENDPOINT_FXO); }
    static void set_number(const char *endpoint, const char *number) {
        plan_number &row = the_plan.numbers[the_plan.number_count++];
        strcpy(row.endpoint, endpoint);
        strcpy(row.number, number);
    }
    void ring_in(int32_t line) { app().event(line, LIBVOICE_EVENT_fxo_ri); }
    void call_out(int32_t from) {
        app().event(from, LIBVOICE_EVENT_al_of);
        app().dial(from, "05#");
    }
};

TEST_F(Exchange, RingsTheLowestNumberWhateverItsLength) {
    const int32_t longer = telephone("T1", "101"), lowest = telephone("T2", "99"), other = telephone("T3", "102");
    ring_in(exchange_line("X1"));
    EXPECT_EQ(app().state(longer), "idle");
    EXPECT_EQ(app().state(lowest), "ringing");
    EXPECT_EQ(app().state(other), "idle");
}

TEST_F(Exchange, RingsTheNumberOfTheSettings) {
    strcpy(the_plan.incoming_number, "102");
    const int32_t lowest = telephone("T1", "101"), wanted = telephone("T2", "102");
    ring_in(exchange_line("X1"));
    EXPECT_EQ(app().state(lowest), "idle");
    EXPECT_EQ(app().state(wanted), "ringing");
}

TEST_F(Exchange, RingsNobodyWithoutANumber) {
    strcpy(the_plan.incoming_number, "102");
    telephone("T1", "101");
    const int32_t line = exchange_line("X1");
    app().said();
    ring_in(line);
    EXPECT_LINES(app().said(), "call N fxo1.X1->102 refused: nobody to ring");
    EXPECT_EQ(app().state(line), "idle");
}

// Each ring is told: what nobody could take is offered anew, and refused aloud only once.
TEST_F(Exchange, EachRingOffersTheCallToTheFirstFreeTelephone) {
    const int32_t first = telephone("T1", "101"), second = telephone("T2", "102"), line = exchange_line("X1");
    app().event(first, LIBVOICE_EVENT_al_of);
    app().event(second, LIBVOICE_EVENT_al_of);
    app().said();
    ring_in(line);
    EXPECT_LINES(app().said(), "call N fxo1.X1->101 refused: busy");
    ring_in(line);
    EXPECT_LINES(app().said());
    app().event(second, LIBVOICE_EVENT_al_on);
    ring_in(line);
    EXPECT_EQ(app().state(second), "ringing");
    ring_in(line);
    EXPECT_EQ(app().state(line), "calling") << "one call";
    app().event(second, LIBVOICE_EVENT_al_of);
    EXPECT_EQ(app().state(line), "talking");
    EXPECT_EQ(app().state(second), "talking");
}

TEST_F(Exchange, LineThatRingsIsNotSeizedForACallThatGoesOut) {
    const int32_t caller = telephone("T1", "101"), line = exchange_line("X1");
    app().event(caller, LIBVOICE_EVENT_al_of);
    ring_in(line);
    app().sent();
    app().dial(caller, "0123#");
    EXPECT_EQ(app().sent(), "T1: silence, cg_ct") << "it would have been answered";
    EXPECT_EQ(app().state(line), "idle");
    app().event(line, LIBVOICE_EVENT_fxo_rh); // the caller gives up
    app().event(caller, LIBVOICE_EVENT_al_on);
    call_out(caller);
    EXPECT_EQ(app().state(line), "talking");
}

TEST_F(Exchange, RingingThatNobodyEndsIsOverTenSecondsAfterTheLastRing) {
    const int32_t caller = telephone("T1", "101"), line = exchange_line("X1");
    app().event(caller, LIBVOICE_EVENT_al_of);
    ring_in(line);
    bus().advance(9000);
    ring_in(line);
    bus().advance(9999);
    app().dial(caller, "0123#");
    EXPECT_EQ(app().state(line), "idle");
    bus().advance(1);
    app().event(caller, LIBVOICE_EVENT_al_on);
    call_out(caller);
    EXPECT_EQ(app().state(line), "talking");
}

TEST_F(Exchange, EmergencyNumbersNeedNoPrefix) {
    exchange_line("X1");
    const int32_t caller = telephone("T1", "101");
    app().event(caller, LIBVOICE_EVENT_al_of);
    app().sent();
    app().dial(caller, "112");
    EXPECT_EQ(app().sent(), "T1: silence, silence, create | X1: fxo_of, fxoen_sd 112, create") << "at once";
}

// Longest match first, also before the prefix.
TEST_F(Exchange, EmergencyNumbersGoBeforeThePrefixAndLongerNumbersBeforeThem) {
    strcpy(the_plan.emergency, "000 15");
    exchange_line("X1");
    const int32_t caller = telephone("T1", "151"), called = telephone("T2", "153");
    app().event(caller, LIBVOICE_EVENT_al_of);
    app().sent();
    app().dial(caller, "000");
    EXPECT_EQ(app().sent(), "T1: silence, silence, create | X1: fxo_of, fxoen_sd 000, create");
    app().event(caller, LIBVOICE_EVENT_al_on);
    app().event(caller, LIBVOICE_EVENT_al_of);
    app().dial(caller, "15");
    EXPECT_EQ(app().state(caller), "collecting") << "153 may follow";
    app().dial(caller, "3");
    EXPECT_EQ(app().state(called), "ringing");
    app().event(caller, LIBVOICE_EVENT_al_on);
    app().event(caller, LIBVOICE_EVENT_al_of);
    app().dial(caller, "15");
    app().sent();
    bus().advance(4000);
    EXPECT_EQ(app().sent(), "T1: silence, create | X1: fxo_of, fxoen_sd 15, create");
}

TEST_F(Exchange, LineHasNoNumber) {
    set_number("X1", "7");
    exchange_line("X1");
    EXPECT_EQ(app().said().back(), "endpoint 0 fxo1.X1 number=none codecs=PCMA,PCMU");
}

TEST_F(Exchange, LineThatRingsNeverRingsItself) {
    set_number("X1", "7");
    const int32_t line = exchange_line("X1");
    ring_in(line);
    EXPECT_EQ(app().state(line), "idle");
}

TEST_F(Exchange, LineIsLiftedAndPutBackByTheApplicationOnly) {
    const int32_t caller = telephone("T1", "101"), line = exchange_line("X1");
    app().sent();
    app().event(line, LIBVOICE_EVENT_al_of);
    EXPECT_EQ(app().sent(), "");
    EXPECT_EQ(app().state(line), "idle");
    call_out(caller);
    EXPECT_EQ(app().state(line), "talking");
    app().event(line, LIBVOICE_EVENT_al_on);
    app().event(line, LIBVOICE_EVENT_al_fl);
    app().event(line, LIBVOICE_EVENT_dd_d3);
    EXPECT_EQ(app().state(line), "talking");
    EXPECT_EQ(app().state(caller), "talking");
}

TEST_F(Exchange, FirstFreeLineTakesACallAndNoneIsCongestion) {
    const int32_t first = exchange_line("X1"), second = exchange_line("X2");
    call_out(telephone("T1", "101"));
    EXPECT_EQ(app().state(first), "talking");
    EXPECT_EQ(app().state(second), "idle");
    call_out(telephone("T2", "102"));
    EXPECT_EQ(app().state(second), "talking");
    const int32_t third = telephone("T3", "103");
    app().sent();
    call_out(third);
    EXPECT_EQ(app().sent(), "T3: cg_dt, silence, cg_ct");
    EXPECT_EQ(app().state(third), "busy");
}

TEST_F(Exchange, LineOfTheSettingsIsTheOnlyOneForCalls) {
    strcpy(the_plan.exchange_endpoint, "fxo1.X2");
    const int32_t first = exchange_line("X1"), second = exchange_line("X2");
    call_out(telephone("T1", "101"));
    EXPECT_EQ(app().state(first), "idle");
    EXPECT_EQ(app().state(second), "talking");
    call_out(telephone("T2", "102"));
    EXPECT_EQ(app().said().back(), "line 102 busy");
}

TEST_F(Exchange, DialsWhatFollowsThePrefix) {
    strcpy(the_plan.exchange_prefix, "00");
    exchange_line("X1");
    const int32_t caller = telephone("T1", "101");
    app().event(caller, LIBVOICE_EVENT_al_of);
    app().sent();
    app().dial(caller, "00301#");
    EXPECT_EQ(app().sent(), "T1: silence, silence, create | X1: fxo_of, fxoen_sd 301, create");
}

TEST_F(Exchange, PrefixAloneIsNoNumber) {
    exchange_line("X1");
    const int32_t caller = telephone("T1", "101");
    app().event(caller, LIBVOICE_EVENT_al_of);
    app().dial(caller, "0#");
    EXPECT_EQ(app().state(caller), "busy");
}

TEST_F(Exchange, CodecsMustMeet) {
    const int32_t line = app().register_endpoint("fxo1", "X1", VOICE_ENDPOINT_FXO, {application_test::kG722});
    const int32_t caller = telephone("T1", "101");
    app().said();
    ring_in(line);
    EXPECT_LINES(app().said(), "call N fxo1.X1->101 refused: no common codec");
    call_out(caller);
    EXPECT_EQ(app().state(caller), "busy");
    EXPECT_EQ(app().state(line), "idle");
}

} // namespace

// SPDX-License-Identifier: MIT
// Plugins and endpoints that come and go: what is taken, numbered, rejected and said; and events that are none.
#include "application.h"
#include "callbacks.h"

#include <cstring>
#include <gmock/gmock.h>

using application_test::ApplicationTest;
using application_test::item;
using application_test::word;
using fake::bus;
using fake::Call;
using fake::Value;
using testing::Contains;

namespace {

class Registration : public ApplicationTest {
protected:
    int32_t telephone(const char *plugin, const char *name) {
        return app().register_endpoint(plugin, name, VOICE_ENDPOINT_FXS);
    }
};

TEST_F(Registration, PluginsAreSaidWhenTheyComeAndGo) {
    app().register_plugin("fxs1");
    app().register_plugin("fxs2");
    EXPECT_LINES(app().said(), "plugin fxs1 registered", "plugin fxs2 registered");
    Call().from(bus().peer("fxs1")).with("plugin_name", Value::chars("fxs1")).run(__VoiceService_deregister_plugin);
    app().close("fxs1");
    EXPECT_LINES(app().said(), "plugin fxs1 left");
    app().close("fxs2");
    EXPECT_LINES(app().said(), "plugin fxs2 lost");
}

// Its place in the table is free before its connection closes.
TEST_F(Registration, PluginWhosePlaceIsTakenAtOnceIsToldOf) {
    app().register_plugin("fxs1");
    Call().from(bus().peer("fxs1")).with("plugin_name", Value::chars("fxs1")).run(__VoiceService_deregister_plugin);
    app().register_plugin("fxs2");
    EXPECT_LINES(app().said(), "plugin fxs1 registered", "plugin fxs1 left", "plugin fxs2 registered");
    app().close("fxs1");
    EXPECT_LINES(app().said());
    app().close("fxs2");
    EXPECT_LINES(app().said(), "plugin fxs2 lost");
}

// A process that is started again may be faster than the end of the one before.
TEST_F(Registration, PluginWhoseNameIsTakenAtOnceIsToldOf) {
    Call leave, back;
    app().register_plugin("fxs1");
    leave.from(bus().peer("fxs1")).with("plugin_name", Value::chars("fxs1"));
    ASSERT_EQ(leave.run(__VoiceService_deregister_plugin), KEX_FUNCTION_DONE);
    back.from(bus().peer("back")).with("plugin_name", Value::chars("fxs1"));
    ASSERT_EQ(back.run(__VoiceService_register_plugin), KEX_FUNCTION_DONE);
    bus().advance(0);
    EXPECT_LINES(app().said(), "plugin fxs1 registered", "plugin fxs1 left", "plugin fxs1 registered");
    app().close("fxs1");
    EXPECT_LINES(app().said());
    app().close("back");
    EXPECT_LINES(app().said(), "plugin fxs1 lost");
}

TEST_F(Registration, CountryIsThatOfTheSettings) {
    char country[3] = "";
    strcpy(the_plan.country, "FR");
    EXPECT_EQ(libvoice_app_registered_callbacks.voice_app_get_country(country, sizeof country), 0);
    EXPECT_STREQ(country, "FR");
    EXPECT_LT(libvoice_app_registered_callbacks.voice_app_get_country(country, 2), 0) << "no room for it";
}

TEST_F(Registration, EndpointsAreNumberedByTheirNames) {
    app().register_plugin("fxs1");
    app().register_plugin("fxs2");
    app().said();
    EXPECT_EQ(telephone("fxs1", "FXS2"), 0);
    EXPECT_EQ(telephone("fxs2", "FXS1"), 1);
    EXPECT_LINES(app().said(), "endpoint 0 fxs1.FXS2 number=102 codecs=PCMA,PCMU",
                 "endpoint 1 fxs2.FXS1 number=201 codecs=PCMA,PCMU");
}

TEST_F(Registration, NumbersOfTheSettingsGoBefore) {
    strcpy(the_plan.numbers[0].number, "555");
    strcpy(the_plan.numbers[0].endpoint, "fxs1.FXS1");
    strcpy(the_plan.numbers[0].name, "Kitchen");
    the_plan.number_count = 1;
    app().register_plugin("fxs1");
    const int32_t line = telephone("fxs1", "FXS1");
    EXPECT_STREQ(line_of_endpoint(line)->number, "555");
    EXPECT_EQ(line_of_text("555"), line_of_endpoint(line));
    EXPECT_EQ(line_of_text("FXS1"), line_of_endpoint(line));
    EXPECT_EQ(line_of_text("fxs1.FXS1"), line_of_endpoint(line));
    EXPECT_EQ(line_of_text(""), nullptr);
    EXPECT_EQ(line_of_text(nullptr), nullptr);
    EXPECT_EQ(line_of_text("101"), nullptr);
}

TEST_F(Registration, NumberThatIsTakenLeavesALineWithoutOne) {
    app().register_plugin("fxs1");
    app().register_plugin("cellar1");
    telephone("fxs1", "FXS1");
    app().said();
    const int32_t second = telephone("cellar1", "FXS1");
    EXPECT_LINES(app().said(), "endpoint 1 cellar1.FXS1 number=none codecs=PCMA,PCMU",
                 "endpoint 1 cellar1.FXS1 has no number: 101 is taken by fxs1.FXS1");
    app().event(second, LIBVOICE_EVENT_al_of);
    EXPECT_LINES(app().said(), "line cellar1.FXS1 dial-tone");
}

TEST_F(Registration, NumberOfALineThatLeftGoesToTheOneThatWantsIt) {
    app().register_plugin("fxs1");
    app().register_plugin("cellar1");
    app().register_plugin("attic1");
    const int32_t first = telephone("fxs1", "FXS1");
    const int32_t second = telephone("cellar1", "FXS1");
    telephone("attic1", "FXS1");
    app().said();
    app().deregister_endpoint(first);
    EXPECT_LINES(app().said(), "endpoint 0 fxs1.FXS1 gone", "endpoint 1 cellar1.FXS1 has the number 101 now");
    EXPECT_EQ(line_of_text("101"), line_of_endpoint(second));
    app().event(second, LIBVOICE_EVENT_al_of);
    EXPECT_LINES(app().said(), "line 101 dial-tone");
    app().event(second, LIBVOICE_EVENT_al_on);
    app().said();
    // The one that had it before comes later: it waits like the other one.
    telephone("fxs1", "FXS1");
    EXPECT_THAT(app().said(), Contains("endpoint 0 fxs1.FXS1 has no number: 101 is taken by cellar1.FXS1"));
    app().deregister_endpoint(second);
    EXPECT_LINES(app().said(), "endpoint 1 cellar1.FXS1 gone", "endpoint 0 fxs1.FXS1 has the number 101 now");
}

TEST_F(Registration, OtherNumbersThatBecomeFreeAreNotWanted) {
    app().register_plugin("fxs1");
    app().register_plugin("cellar1");
    telephone("fxs1", "FXS1");
    const int32_t other = telephone("fxs1", "FXS2");
    telephone("cellar1", "FXS1");
    app().said();
    app().deregister_endpoint(other);
    EXPECT_LINES(app().said(), "endpoint 1 fxs1.FXS2 gone");
}

TEST_F(Registration, NameThatGivesNoNumberIsSaid) {
    app().register_plugin("fxs9");
    app().register_plugin("fxo1");
    app().said();
    telephone("fxs9", "FXS1");
    app().register_endpoint("fxo1", "FXO1", VOICE_ENDPOINT_FXO);
    EXPECT_LINES(app().said(), "endpoint 0 fxs9.FXS1 number=none codecs=PCMA,PCMU",
                 "endpoint 0 fxs9.FXS1 has no number: its name gives none, and the settings do not name it",
                 "endpoint 1 fxo1.FXO1 number=none codecs=PCMA,PCMU");
}

// A name belongs to the connection that registered it first, until that one is gone.
TEST_F(Registration, NameOfAnotherConnectionIsRejected) {
    app().register_plugin("fxs1");
    app().said();
    bus().process(bus().peer("fxs1"), "fxs_plugin", 11);
    bus().process(bus().peer("twin"), "fxs_plugin", 12);
    Call twin;
    twin.from(bus().peer("twin")).with("plugin_name", Value::chars("fxs1"));
    EXPECT_EQ(twin.run(__VoiceService_register_plugin), KEX_FUNCTION_FAILED);
    EXPECT_LINES(app().said(),
                 "plugin fxs1 rejected: fxs_plugin (process 12) wants the name of fxs_plugin (process 11)");
    EXPECT_EQ(libvoice_plugin_get_index_by_peer(bus().peer("twin")), -1);
    EXPECT_EQ(
        Call().from(bus().peer("fxs1")).with("plugin_name", Value::chars("fxs1")).run(__VoiceService_register_plugin),
        KEX_FUNCTION_DONE)
        << "the holder may register again";
    app().close("fxs1");
    EXPECT_LINES(app().said(), "plugin fxs1 lost");
    EXPECT_EQ(twin.run(__VoiceService_register_plugin), KEX_FUNCTION_DONE) << "now it is free";
    bus().advance(0);
    EXPECT_LINES(app().said(), "plugin fxs1 registered");
}

TEST_F(Registration, OnlyTheHolderOfANameTakesLeaveUnderIt) {
    app().register_plugin("fxs1");
    app().said();
    bus().process(bus().peer("fxs1"), "fxs_plugin", 11);
    bus().process(bus().peer("twin"), "fxs_plugin", 12);
    const auto leave = [](const char *peer, const char *name) {
        Call call;
        call.from(bus().peer(peer)).named("deregister_plugin").with("plugin_name", Value::chars(name));
        return call.run(__VoiceService_deregister_plugin);
    };
    EXPECT_EQ(leave("twin", "fxs1"), KEX_FUNCTION_FAILED);
    EXPECT_LINES(
        app().said(),
        "plugin fxs1 stays: fxs_plugin (process 12) cannot deregister what fxs_plugin (process 11) registered");
    EXPECT_NE(libvoice_plugin_get_entry("fxs1"), nullptr);
    EXPECT_EQ(leave("twin", "nobody"), KEX_FUNCTION_FAILED) << "the library's answer";
    EXPECT_LINES(app().said());
    EXPECT_EQ(leave("fxs1", "fxs1"), KEX_FUNCTION_DONE);
}

// Its leave may lie behind its registration when the application gets to run.
TEST_F(Registration, PluginThatLeavesAtOnceIsToldOf) {
    peer_t *peer = bus().peer("fxs1");
    Call here, leave;
    here.from(peer).named("register_plugin").with("plugin_name", Value::chars("fxs1"));
    ASSERT_EQ(here.run(__VoiceService_register_plugin), KEX_FUNCTION_DONE);
    leave.from(peer).named("deregister_plugin").with("plugin_name", Value::chars("fxs1"));
    ASSERT_EQ(leave.run(__VoiceService_deregister_plugin), KEX_FUNCTION_DONE);
    bus().close(peer);
    EXPECT_LINES(app().said(), "plugin fxs1 registered", "plugin fxs1 left");
}

TEST_F(Registration, NamesThatTheTablesWouldCutAreNamed) {
    Call longest;
    longest.from(bus().peer("p")).with("plugin_name", Value::chars("12345678901234567890"));
    EXPECT_EQ(longest.run(__VoiceService_register_plugin), KEX_FUNCTION_FAILED);
    EXPECT_LINES(app().said(), "plugin 12345678901234567890 rejected: name too long: 19 characters at most");
    app().register_plugin("fxs1");
    app().said();
    EXPECT_EQ(telephone("fxs1", "123456789012345"), 0);
    app().said();
    EXPECT_EQ(telephone("fxs1", "1234567890123456"), -1);
    EXPECT_LINES(app().said(), "endpoint refused plugin=fxs1: name too long: 15 characters at most");
}

TEST_F(Registration, PluginWithoutAnEndpointIsHintedAtOnce) {
    app().register_plugin("tel");
    app().register_plugin("fxs1");
    app().said();
    telephone("fxs1", "FXS1");
    app().said();
    bus().advance(1999);
    EXPECT_LINES(app().said());
    bus().advance(1);
    EXPECT_LINES(app().said(), "plugin tel registered, but no endpoint came (right for a DSP plugin only)");
    bus().advance(60000);
    EXPECT_LINES(app().said());
}

TEST_F(Registration, PluginThatWentAwayIsNotHintedAt) {
    app().register_plugin("tel");
    app().close("tel");
    app().said();
    bus().advance(60000);
    EXPECT_LINES(app().said());
}

TEST_F(Registration, DisplayNameIsSetAndAHandsetIsAskedForItsType) {
    app().register_plugin("dect1");
    bus().answer("get", fake::Reply());
    app().register_endpoint("dect1", "DECT1", VOICE_ENDPOINT_DECT);
    EXPECT_EQ(app().sent(), "DECT1: set, get");
    bus().turn();
    EXPECT_THAT(app().said(), Contains("param 501: no answer"));
}

struct Rejected {
    const char *name, *path;
    int type;
    const char *why;
};

TEST_F(Registration, BadEndpointsAreRejectedWithAReason) {
    app().register_plugin("fxs1");
    telephone("fxs1", "FXS1");
    const Rejected rows[] = {
        {"FX S", "fxs1.EndPoint.FX S", VOICE_ENDPOINT_FXS, "bad name"},
        {"F.S", "fxs1.EndPoint.F.S", VOICE_ENDPOINT_FXS, "bad name"},
        {"", "fxs1.EndPoint.", VOICE_ENDPOINT_FXS, "bad name"},
        {"FXS\"", "fxs1.EndPoint.FXS\"", VOICE_ENDPOINT_FXS, "bad name"},
        {"FXS2", "fxs2.EndPoint.FXS2", VOICE_ENDPOINT_FXS, "its path is not that of its plugin"},
        {"FXS1", "fxs1.EndPoint.FXS1", VOICE_ENDPOINT_FXS, "registered already"},
        {"FXS2", "fxs1.EndPoint.FXS2", 0, "unknown type"},
        {"FXS2", "fxs1.EndPoint.FXS2", VOICE_ENDPOINT_FXO + 1, "unknown type"},
    };
    app().said();
    for (const Rejected &row : rows) {
        Call call;
        call.from(bus().peer("fxs1")).with("plugin_name", Value::chars("fxs1"));
        call.with("endpoint_name", Value::chars(row.name)).with("endpoint_path", Value::chars(row.path));
        call.with("type", Value::u16(static_cast<uint16_t>(row.type))).with("codeclist", Value::bytes(""));
        EXPECT_EQ(call.run(__VoiceService_register_endpoint), KEX_FUNCTION_FAILED) << row.path;
        EXPECT_LINES(app().said(), std::string("endpoint refused plugin=fxs1: ") + row.why);
    }
    EXPECT_EQ(app().state(0), "idle") << "the one that was there stays";
    EXPECT_EQ(app().state(1), "gone");
}

TEST_F(Registration, AnEntryIsUsedAgainFromANewState) {
    app().register_plugin("fxs1");
    const int32_t line = telephone("fxs1", "FXS1");
    app().event(line, LIBVOICE_EVENT_al_of);
    app().deregister_endpoint(line);
    EXPECT_EQ(app().state(line), "gone");
    EXPECT_EQ(telephone("fxs1", "FXS2"), line);
    EXPECT_EQ(app().state(line), "idle");
    app().event(line, LIBVOICE_EVENT_al_of);
    EXPECT_EQ(app().state(line), "dial-tone");
}

// After "init" came twice a plugin reports again what is off hook.
TEST_F(Registration, OffHookReportedAgainChangesNothing) {
    app().register_plugin("fxs1");
    const int32_t line = telephone("fxs1", "FXS1");
    app().event(line, LIBVOICE_EVENT_al_of);
    app().dial(line, "1");
    app().sent();
    app().event(line, LIBVOICE_EVENT_al_of);
    EXPECT_EQ(app().state(line), "collecting");
    EXPECT_EQ(app().sent(), "");
}

TEST_F(Registration, EventsThatMeanNothingAreSaid) {
    app().register_plugin("fxs1");
    const int32_t line = telephone("fxs1", "FXS1");
    app().said();
    app().event(line, LIBVOICE_EVENT_nt_netfail);
    app().event(17, LIBVOICE_EVENT_al_of);
    app().event(-1, LIBVOICE_EVENT_al_of);
    EXPECT_LINES(app().said(), "event LIBVOICE_EVENT_nt_netfail of 101 ignored",
                 "event LIBVOICE_EVENT_al_of of unknown endpoint 17 ignored",
                 "event LIBVOICE_EVENT_al_of of unknown endpoint -1 ignored");
}

TEST_F(Registration, HandsetsReportWhatTheyAre) {
    app().register_plugin("dect1");
    const int32_t line = app().register_endpoint("dect1", "DECT1", VOICE_ENDPOINT_DECT);
    bus().complete(bus().request(bus().requests_made()), fake::Reply());
    app().said();
    app().event(line, LIBVOICE_EVENT_zil_dect_property,
                item(LIBVOICE_PARAM_zil_dect_property_sw_version, std::string("2.1.0\0", 6)) +
                    item(LIBVOICE_PARAM_zil_dect_property_hw_version, std::string("HS-1\0", 5)) +
                    item(LIBVOICE_PARAM_zil_dect_property_reachability_status, word(1)));
    EXPECT_LINES(app().said(), "handset 501 software=2.1.0 hardware=HS-1 reachable=yes");
    app().event(line, LIBVOICE_EVENT_zil_dect_property);
    EXPECT_LINES(app().said(), "handset 501 software=? hardware=? reachable=no");
}

} // namespace

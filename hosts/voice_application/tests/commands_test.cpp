// SPDX-License-Identifier: MIT
// The commands of the voice application: what they answer and what they send.
#include "application.h"
#include "caller_display.h"
#include "commands.h"

#include <cstring>
#include <gmock/gmock.h>

using application_test::ApplicationTest;
using application_test::item;
using application_test::kG722;
using application_test::kPcma;
using application_test::word;
using fake::bus;
using fake::Reply;
using fake::Value;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

class Commands : public ApplicationTest {
protected:
    int32_t first, second, handset, exchange;

    Commands() {
        for (const char *plugin : {"fxs1", "dect1", "fxo1"})
            app().register_plugin(plugin);
        first = app().register_endpoint("fxs1", "FXS1", VOICE_ENDPOINT_FXS);
        second = app().register_endpoint("fxs1", "FXS2", VOICE_ENDPOINT_FXS, {application_test::kPcmu, kPcma});
        bus().answer("get", Reply());
        handset = app().register_endpoint("dect1", "DECT1", VOICE_ENDPOINT_DECT, {kG722});
        bus().turn();
        exchange = app().register_endpoint("fxo1", "FXO1", VOICE_ENDPOINT_FXO);
        app().said();
        app().sent();
    }
    // What a command says, and "ok" or its error behind it.
    std::vector<std::string> run(const std::string &text) {
        std::string copy = text;
        const char *why = command_run(copy.data());
        const std::string end = why == nullptr ? "ok" : std::string("error: ") + why;
        std::vector<std::string> result = app().said();
        result.push_back(end);
        return result;
    }
    void talk() {
        app().event(first, LIBVOICE_EVENT_al_of);
        app().dial(first, "102");
        app().event(second, LIBVOICE_EVENT_al_of);
        app().said();
        app().sent();
    }
    uint32_t call() { return line_of_endpoint(first)->last_call[0]; }
};

TEST_F(Commands, StatusShowsPluginsAndLines) {
    app().event(first, LIBVOICE_EVENT_al_of);
    app().said();
    EXPECT_THAT(run("status"),
                ElementsAre("country DE, codecs any, media by descriptor", MatchesRegex("plugin fxs1 process=[0-9]+"),
                            MatchesRegex("plugin dect1 process=[0-9]+"), MatchesRegex("plugin fxo1 process=[0-9]+"),
                            "line 101 dial-tone endpoint=0 fxs1.FXS1 \"FXS1\"",
                            "line 102 idle endpoint=1 fxs1.FXS2 \"FXS2\"",
                            "line 501 idle endpoint=2 dect1.DECT1 \"DECT1\"",
                            "line fxo1.FXO1 idle endpoint=3 fxo1.FXO1 \"FXO1\"", "ok"));
}

TEST_F(Commands, CallsShowsWhatThereIs) {
    EXPECT_LINES(run("calls"), "ok");
    talk();
    EXPECT_THAT(run("calls"),
                ElementsAre(MatchesRegex("call N 101->102 talking codec=PCMA ports=[0-9]+,[0-9]+"), "ok"));
}

TEST_F(Commands, HangupEndsACallByItsNumber) {
    talk();
    EXPECT_LINES(run("hangup 4294967295"), "error: hangup CALL: the number of a call");
    EXPECT_LINES(run("hangup"), "error: hangup CALL: the number of a call");
    EXPECT_LINES(run("hangup 999999"), "error: there is no call 999999");
    EXPECT_LINES(run("hangup " + std::to_string(call())), "call N 101->102 ended: ended by command", "line 101 busy",
                 "line 102 busy", "ok");
}

TEST_F(Commands, MwiShowsMessagesOnATelephone) {
    EXPECT_LINES(run("mwi 101 3"), "ok");
    EXPECT_EQ(app().sent(), "FXS1: andisp_data");
    const std::string params = app().params_of_signal(LIBVOICE_SIGNAL_andisp_data);
    message_display display = {};
    EXPECT_TRUE(message_display_decode(params.c_str() + 8, &display));
    EXPECT_EQ(display.messages, 3u);
    EXPECT_TRUE(display.lamp);
    EXPECT_LINES(run("mwi 101 256"), "error: mwi LINE COUNT: the count is a number from 0 to 255");
    EXPECT_LINES(run("mwi 101"), "error: mwi LINE COUNT: the count is a number from 0 to 255");
    EXPECT_LINES(run("mwi 999 1"), "error: there is no line '999'");
    EXPECT_LINES(run("mwi"), "error: there is no line ''");
    EXPECT_LINES(run("mwi fxo1.FXO1 1"), "error: fxo1.FXO1 is an exchange line");
    EXPECT_EQ(app().sent(), "");
}

TEST_F(Commands, CodecChangesTheCallThatTheLineSpeaksOn) {
    EXPECT_LINES(run("codec 101 PCMU"), "error: 101 is not talking");
    talk();
    EXPECT_LINES(run("codec 101 PCMU"), "call N 101->102 codec=PCMU", "ok");
    EXPECT_EQ(app().sent(), "FXS1: modify both | FXS2: modify both");
    EXPECT_LINES(run("codec 101 G722"), "error: 101 does not offer G722");
    EXPECT_LINES(run("codec 101 MP3"), "error: codec LINE CODEC: a codec like PCMA, PCMU, G722");
    EXPECT_LINES(run("codec 101"), "error: codec LINE CODEC: a codec like PCMA, PCMU, G722");
    app().event(first, LIBVOICE_EVENT_al_fl);
    app().said();
    EXPECT_LINES(run("codec 102 PCMU"), "error: 102 is not talking");
}

TEST_F(Commands, SetSendsAValueByTheTypeOfItsParameter) {
    EXPECT_LINES(run("set 101 tdmc_gain -3"), "ok");
    EXPECT_EQ(app().sent(), "FXS1: set");
    const auto &sets = bus().record(bus().requests_made()).parameter("param_set_params").data;
    EXPECT_THAT(sets, HasSubstr(item(LIBVOICE_PARAM_tdmc_gain, word(static_cast<uint32_t>(-3)))));
    EXPECT_LINES(run("set 101 LIBVOICE_PARAM_zil_ep_dispname \"Living room\""), "ok");
    EXPECT_THAT(bus().record(bus().requests_made()).parameter("param_set_params").data,
                HasSubstr(item(LIBVOICE_PARAM_zil_ep_dispname, std::string("Living room\0", 12))));
    EXPECT_LINES(run("set 101 tdmc_gain loud"), "error: 'loud' is no value of tdmc_gain");
    EXPECT_LINES(run("set 101 tdmc_gain"), "error: set LINE PARAMETER VALUE: for example set 101 tdmc_gain -3");
    EXPECT_LINES(run("set 101 nonsense 1"), "error: set LINE PARAMETER VALUE: for example set 101 tdmc_gain -3");
    EXPECT_LINES(run("set 101"), "error: set LINE PARAMETER VALUE: for example set 101 tdmc_gain -3");
    EXPECT_LINES(run("set 101 zil_ep_dispname " + std::string(235, 'x')), "ok");
    EXPECT_LINES(run("set 101 zil_ep_dispname " + std::string(236, 'x')), "error: a text has at most 235 characters");
    bus().fail_always("kex_sendRequest");
    EXPECT_LINES(run("set 101 tdmc_gain 1"), "error: not sent");
}

struct Answer {
    const char *name;
    Reply reply;
    std::vector<std::string> said;
};

TEST_F(Commands, GetSaysWhatComesBack) {
    const std::string own = item(LIBVOICE_PARAM_zil_ep_id, word(0));
    const auto set = [](const std::string &params, uint32_t length) { return word(0) + word(length) + params; };
    const auto whole = [&](const std::string &params) {
        return Reply().value(Value::bytes(set(params, static_cast<uint32_t>(params.size()))));
    };
    const Answer answers[] = {
        {"an integer",
         whole(own + item(LIBVOICE_PARAM_tdmc_gain, word(static_cast<uint32_t>(-3)))),
         {"param 101 tdmc_gain=-3"}},
        {"a text", whole(own + item(LIBVOICE_PARAM_zil_ep_dispname, "Study")), {"param 101 zil_ep_dispname=\"Study\""}},
        {"a text that could end itself",
         whole(item(LIBVOICE_PARAM_zil_ep_dispname, "\" x=\"")),
         {"param 101 zil_ep_dispname=\". x=.\""}},
        {"a handset's type",
         whole(item(LIBVOICE_PARAM_zil_dect_pp_type, word(2))),
         {"param 101 zil_dect_pp_type=2 CAT-iq 1.0"}},
        {"bytes", whole(item(LIBVOICE_PARAM_al_ri_cad, word(1))), {"param 101 al_ri_cad (4 bytes)"}},
        {"an integer that is cut off", whole(item(LIBVOICE_PARAM_tdmc_gain, "ab")), {"param 101 tdmc_gain (2 bytes)"}},
        {"nothing", whole(own), {"param 101: no value"}},
        {"no answer", Reply(), {"param 101: no answer"}},
        {"an error", Reply().error(1, "Peer closed", ""), {"param 101: no answer"}},
        {"another type", Reply().value(Value::boolean(false)), {"param 101: no answer"}},
        {"less than a head", Reply().value(Value::bytes("1234567")), {"param 101: no answer"}},
        {"a length beyond its end", Reply().value(Value::bytes(set("", 1))), {"param 101: no answer"}},
        {"a length near the largest", Reply().value(Value::bytes(set("", UINT32_MAX))), {"param 101: no answer"}},
    };
    for (const Answer &answer : answers) {
        SCOPED_TRACE(answer.name);
        bus().answer_next("get", answer.reply);
        EXPECT_LINES(run("get 101 tdmc_gain"), "ok");
        bus().turn();
        fake::expect_lines(__FILE__, __LINE__, answer.said, app().said());
    }
    EXPECT_LINES(run("get 101 nonsense"), "error: get LINE PARAMETER: for example get 101 tdmc_gain");
    bus().fail_always("kex_sendRequest");
    EXPECT_LINES(run("get 101 tdmc_gain"), "error: not sent");
}

TEST_F(Commands, GetOfALineThatHasGoneMeanwhile) {
    EXPECT_LINES(run("get 101 tdmc_gain"), "ok");
    app().deregister_endpoint(first);
    app().said();
    bus().turn();
    EXPECT_LINES(app().said(), "param ?: no answer");
}

TEST_F(Commands, FlashIsForExchangeLines) {
    EXPECT_LINES(run("flash fxo1.FXO1"), "ok");
    EXPECT_EQ(app().sent(), "FXO1: fxo_fl");
    EXPECT_LINES(run("flash 101"), "error: 101 is no exchange line");
}

TEST_F(Commands, DeregisterAsksAHandset) {
    EXPECT_LINES(run("deregister 501"), "ok");
    EXPECT_EQ(app().sent(), "DECT1: zil_deregister");
    for (const char *other : {"101", "fxo1.FXO1"})
        EXPECT_LINES(run(std::string("deregister ") + other), std::string("error: ") + other + " is no handset");
    EXPECT_EQ(app().sent(), "");
}

TEST_F(Commands, UnknownOnesAreNamed) {
    EXPECT_LINES(run("dance"), "error: unknown command 'dance'; try help");
    EXPECT_LINES(run("dsp dsp9"), "error: there is no plugin 'dsp9'");
}

TEST_F(Commands, HelpAndStatsAnswer) {
    EXPECT_EQ(run("help").back(), "ok");
    EXPECT_THAT(run("help"), Contains(HasSubstr("hangup CALL")));
    EXPECT_EQ(run("stats").back(), "ok");
}

} // namespace

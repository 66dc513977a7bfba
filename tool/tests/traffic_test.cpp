// SPDX-License-Identifier: MIT
// From tap records to the long ladder and to JSON: names of endpoints, calls joined with their outcomes, waits.
#include "traffic.h"

#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

#include "filter.h"
#include "libvoice_plugin.h"
#include "samples.h"
#include "show.h"

namespace voicectl {

namespace {

constexpr auto in = Sample::Direction::in;
constexpr auto out = Sample::Direction::out;
constexpr const char *kApplication = "VoiceService.VoiceApplication";
constexpr uint64_t kMs = 1'000'000;
constexpr Form kFull{.full = true};

class Ladder : public testing::Test {
protected:
    Ladder() {
        setenv("TZ", "UTC", 1);
        tzset();
    }

    std::string line(Sample &sample) {
        const std::optional<Step> step = traffic.next(sample.record());
        return step ? ladder_line(*step, kFull) : "nothing";
    }

    std::string line(Sample &&sample) { return line(sample); }

    // A plugin "fxs_a" on connection 1 whose endpoint FXS1 has number 4.
    void register_line() {
        line(Sample(KEX_TAP_CALL, in, 1, "fxs_plugin")
                 .call(1, kApplication, "register_plugin")
                 .with_text("plugin_name", "fxs_a"));
        line(Sample(KEX_TAP_CALL, in, 1, "fxs_plugin")
                 .call(2, kApplication, "register_endpoint")
                 .with_text("plugin_name", "fxs_a")
                 .with_text("endpoint_name", "FXS1"));
        line(Sample(KEX_TAP_REPLY, out, 1, "fxs_plugin").serial(2).with_int16("", 4));
    }

    Traffic traffic;
};

TEST_F(Ladder, ConnectionShowsTheProcess) {
    EXPECT_EQ(line(Sample(KEX_TAP_CONNECTED, in, 1, "fxs_plugin", 3'661'007).text("")),
              "01:01:01.007  fxs_plugin               --> voice_application  connected, process 1001");
}

TEST_F(Ladder, ConnectionsThatAreRefusedAreForgotten) {
    register_line();
    for (uint32_t connection = 2; connection < 10'000; ++connection)
        line(Sample(KEX_TAP_REFUSED, out, connection, "stranger").text("no hello came first"));
    EXPECT_EQ(traffic.connection_count(), 1U);
    EXPECT_NE(line(Sample(KEX_TAP_REFUSED, out, 1, "fxs_plugin").text("the packet is cut off")).find("fxs_a"),
              std::string::npos);
    EXPECT_EQ(traffic.connection_count(), 1U) << "its end is still to come, and shows its name";
}

TEST_F(Ladder, ConnectionsWhoseEndWasLostAreForgottenWhenThereAreManyOthers) {
    for (uint32_t connection = 1; connection < 10'000; ++connection)
        line(Sample(KEX_TAP_CONNECTED, in, connection, "plugin").text(""));
    EXPECT_EQ(traffic.connection_count(), 256U);
}

TEST_F(Ladder, ReasonOfAClosedConnectionCannotSteerTheTerminal) {
    EXPECT_EQ(line(Sample(KEX_TAP_CLOSED, in, 1, "fxs\x1B[2J").text("end\nof file")),
              "00:00:00.000  fxs\\x1B[2J               --> voice_application  closed: end\\x0Aof file");
}

TEST_F(Ladder, RegistrationIsJoinedWithItsOutcome) {
    EXPECT_EQ(line(Sample(KEX_TAP_CALL, in, 1, "fxs_plugin", 1000)
                       .call(1, kApplication, "register_plugin")
                       .with_text("plugin_name", "fxs_a")),
              "00:00:01.000  fxs_a                    --> voice_application  register_plugin  plugin_name \"fxs_a\"");
    EXPECT_EQ(
        line(Sample(KEX_TAP_CALL, out, 1, "fxs_plugin", 1001).call(1, "fxs_a", "init").with_text("country", "DE")),
        "00:00:01.001  fxs_a                    <-- voice_application  init  country \"DE\"");
    EXPECT_EQ(
        line(Sample(KEX_TAP_REPLY, out, 1, "fxs_plugin", 1002).serial(1).with_bool("", true)),
        "00:00:01.002  fxs_a                    <-- voice_application  register_plugin answered  true  after 2.00 ms");
    EXPECT_EQ(line(Sample(KEX_TAP_REPLY, in, 1, "fxs_plugin", 2501).serial(1).with_bool("", false)),
              "00:00:02.501  fxs_a                    --> voice_application  init answered  false  after 1.5 s");
}

TEST_F(Ladder, EventShowsTheNameOfItsEndpoint) {
    register_line();
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_al_of_init, 1);
    EXPECT_EQ(
        line(Sample(KEX_TAP_ONE_WAY_CALL, in, 1, "fxs_plugin")
                 .call(3, kApplication, "event")
                 .with_text("plugin_name", "fxs_a")
                 .with_bytes("event", event_bytes(4, LIBVOICE_EVENT_al_of, parameters))),
        "00:00:00.000  fxs_a FXS1               --> voice_application  event  off hook  LIBVOICE_EVENT_al_of  line 1"
        "  LIBVOICE_PARAM_al_of_init true");
}

TEST_F(Ladder, NumberWhoseRegistrationWasNotSeenShowsAsANumber) {
    EXPECT_EQ(
        line(Sample(KEX_TAP_ONE_WAY_CALL, in, 1, "fxs_plugin")
                 .call(3, kApplication, "event")
                 .with_bytes("event", event_bytes(9, LIBVOICE_EVENT_al_of))),
        "00:00:00.000  fxs_plugin #9            --> voice_application  event  off hook  LIBVOICE_EVENT_al_of  line 1");
}

TEST_F(Ladder, SignalTeachesTheNameOfItsNumber) {
    EXPECT_EQ(line(Sample(KEX_TAP_ONE_WAY_CALL, out, 1, "fxs_plugin")
                       .call(3, "fxs_a.EndPoint.FXS2", "signal")
                       .with_bytes("signal", signal_bytes(9, LIBVOICE_SIGNAL_cg_dt))),
              "00:00:00.000  fxs_a FXS2               <-- voice_application  signal  dial tone  LIBVOICE_SIGNAL_cg_dt  "
              "line 1");
    EXPECT_EQ(
        line(Sample(KEX_TAP_ONE_WAY_CALL, in, 1, "fxs_plugin")
                 .call(3, kApplication, "event")
                 .with_bytes("event", event_bytes(9, LIBVOICE_EVENT_al_on))),
        "00:00:00.000  fxs_a FXS2               --> voice_application  event  on hook  LIBVOICE_EVENT_al_on  line 1");
}

TEST_F(Ladder, DspChannelHasALaneByItsOwnName) {
    EXPECT_EQ(line(Sample(KEX_TAP_CALL, out, 1, "dsp_plugin")
                       .call(3, "dsp_a.DSPPlugin.DSP.D1.DSP_CHANNEL.D1C2", "destroy")
                       .with_uint32("ep_line_id", 1)),
              "00:00:00.000  dsp_a D1C2               <-- voice_application  destroy  ep_line_id 1");
}

TEST_F(Ladder, DescriptorsShowAsNumbersAndLongBytesAsTheirSize) {
    EXPECT_EQ(line(Sample(KEX_TAP_ONE_WAY_CALL, out, 1, "fxs_plugin")
                       .call(3, "fxs_a.EndPoint.FXS2", "create")
                       .with_uint32("ep_line_id", 1)
                       .with_descriptors("filedesc", {7, 8, -1})
                       .with_bytes("long", Bytes(704, 0))
                       .with_bytes("short", {1, 0xAB})),
              "00:00:00.000  fxs_a FXS2               <-- voice_application  create  ep_line_id 1"
              "  filedesc [fd 7, fd 8, fd -]  long 704 bytes  short 01 AB");
}

TEST_F(Ladder, MediaShowWhatTheyDescribe) {
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_sdp_upstream_codec, 8);
    Bytes info;
    append_word(info, 1);
    append_word(info, static_cast<uint32_t>(parameters.size()));
    info.insert(info.end(), parameters.begin(), parameters.end());
    info.resize(704);
    EXPECT_EQ(line(Sample(KEX_TAP_ONE_WAY_CALL, out, 1, "fxs_plugin")
                       .call(3, "fxs_a.EndPoint.FXS2", "modify")
                       .with_uint32("ep_line_id", 1)
                       .with_bytes("cnx_info", info)),
              "00:00:00.000  fxs_a FXS2               <-- voice_application  modify  LIBVOICE_PARAM_sdp_upstream_codec "
              "PCMA  ep_line_id 1");
}

TEST_F(Ladder, ErrorItemsOfAReplyAreShown) {
    line(Sample(KEX_TAP_CALL, in, 1, "x", 10)
             .call(1, kApplication, "register_endpoint")
             .with_text("endpoint_name", "FXS1"));
    EXPECT_EQ(line(Sample(KEX_TAP_REPLY, out, 1, "x", 11)
                       .serial(1)
                       .with_error(196638, "Missing 'type' parameter.", "type")
                       .with_bool("", false)),
              "00:00:00.011  x FXS1                   <-- voice_application  register_endpoint answered"
              "  error 196638 \"Missing 'type' parameter.\" \"type\"  false  after 1.00 ms");
}

TEST_F(Ladder, RefusedEndpointTeachesNoName) {
    line(
        Sample(KEX_TAP_CALL, in, 1, "x").call(1, kApplication, "register_endpoint").with_text("endpoint_name", "FXS1"));
    line(Sample(KEX_TAP_REPLY, out, 1, "x").serial(1).with_int16("", -1));
    EXPECT_NE(line(Sample(KEX_TAP_ONE_WAY_CALL, in, 1, "x")
                       .call(3, kApplication, "event")
                       .with_bytes("event", event_bytes(-1, LIBVOICE_EVENT_al_on)))
                  .find("x #-1 "),
              std::string::npos);
}

TEST_F(Ladder, ClosedConnectionTakesItsNamesWithIt) {
    register_line();
    line(Sample(KEX_TAP_CLOSED, in, 1, "fxs_plugin"));
    EXPECT_NE(line(Sample(KEX_TAP_ONE_WAY_CALL, in, 2, "other")
                       .call(3, kApplication, "event")
                       .with_bytes("event", event_bytes(4, LIBVOICE_EVENT_al_on)))
                  .find("other #4 "),
              std::string::npos);
}

TEST_F(Ladder, DeregisteredEndpointLosesItsName) {
    register_line();
    EXPECT_NE(line(Sample(KEX_TAP_CALL, in, 1, "fxs_plugin")
                       .call(5, kApplication, "deregister_endpoint")
                       .with_uint32("endpoint_id", 4))
                  .find("fxs_a FXS1 "),
              std::string::npos);
    line(Sample(KEX_TAP_REPLY, out, 1, "fxs_plugin").serial(5).with_bool("", true));
    EXPECT_NE(line(Sample(KEX_TAP_ONE_WAY_CALL, in, 1, "fxs_plugin")
                       .call(3, kApplication, "event")
                       .with_bytes("event", event_bytes(4, LIBVOICE_EVENT_al_on)))
                  .find("fxs_a #4 "),
              std::string::npos);
}

TEST_F(Ladder, SerialsOfTheTwoDirectionsAreApart) {
    line(Sample(KEX_TAP_CALL, in, 1, "x", 10).call(1, kApplication, "register_plugin"));
    line(Sample(KEX_TAP_CALL, out, 1, "x", 20).call(1, "x", "init"));
    EXPECT_NE(line(Sample(KEX_TAP_REPLY, in, 1, "x", 30).serial(1)).find("init answered  no value  after 10 ms"),
              std::string::npos);
    EXPECT_NE(
        line(Sample(KEX_TAP_REPLY, out, 1, "x", 30).serial(1)).find("register_plugin answered  no value  after 20 ms"),
        std::string::npos);
}

TEST_F(Ladder, ReplyToACallThatWasNotSeen) {
    EXPECT_NE(line(Sample(KEX_TAP_REPLY, out, 1, "x").serial(12).with_bool("", true)).find("call 12 answered  true"),
              std::string::npos);
}

TEST_F(Ladder, LostCopiesAreNamed) {
    EXPECT_EQ(line(Sample(KEX_TAP_LOST, in, 0, "").lost(17)),
              "00:00:00.000  17 records lost: this watcher was too slow");
}

TEST_F(Ladder, UnknownKindIsPassedOver) {
    EXPECT_EQ(line(Sample(99, in, 1, "x").text("")), "nothing");
}

TEST_F(Ladder, CallThatWaitsForASecondIsNamedOnce) {
    line(Sample(KEX_TAP_CALL, in, 1, "x", 5000).call(1, kApplication, "register_plugin"));
    EXPECT_TRUE(traffic.overdue(5999 * kMs).empty());
    const std::vector<Step> overdue = traffic.overdue(6000 * kMs);
    ASSERT_EQ(overdue.size(), 1u);
    EXPECT_EQ(ladder_line(overdue[0], kFull), "00:00:06.000  x                        --> voice_application"
                                              "  register_plugin has no answer yet, 1.0 s so far");
    EXPECT_TRUE(traffic.overdue(9000 * kMs).empty());
}

TEST_F(Ladder, OneWayCallIsNotWaitedFor) {
    line(Sample(KEX_TAP_ONE_WAY_CALL, in, 1, "x", 5000).call(1, kApplication, "event"));
    EXPECT_TRUE(traffic.overdue(9000 * kMs).empty());
}

// As a plugin's bus answers an application whose "init" found nothing.
TEST_F(Ladder, OneWayCallThatFoundNothingIsJoinedWithItsAnswer) {
    line(Sample(KEX_TAP_ONE_WAY_CALL, out, 1, "tel", 10).call(1, "tel", "init"));
    EXPECT_EQ(line(Sample(KEX_TAP_REPLY, in, 1, "tel", 11).serial(1).with_error(65537, "No such object", "tel")),
              "00:00:00.011  tel                      --> voice_application  init answered"
              "  error 65537 \"No such object\" \"tel\"  after 1.00 ms");
}

TEST_F(Ladder, AnsweredCallIsNotWaitedFor) {
    line(Sample(KEX_TAP_CALL, in, 1, "x", 5000).call(1, kApplication, "register_plugin"));
    line(Sample(KEX_TAP_REPLY, out, 1, "x", 5001).serial(1));
    EXPECT_TRUE(traffic.overdue(9000 * kMs).empty());
}

TEST_F(Ladder, ASideThatSaysItWaits) {
    line(Sample(KEX_TAP_CALL, in, 1, "x", 5000).call(1, kApplication, "register_plugin"));
    EXPECT_EQ(
        line(Sample(KEX_TAP_WAITING, in, 1, "x", 7000).serial(1)),
        "00:00:07.000  x                        --> voice_application  register_plugin is waited for, 2.0 s so far");
    EXPECT_TRUE(traffic.overdue(9000 * kMs).empty());
}

TEST_F(Ladder, ColoursAreThereOnlyWhenAskedFor) {
    const std::optional<Step> step =
        traffic.next(Sample(KEX_TAP_CALL, in, 1, "x").call(1, kApplication, "event").record());
    for (const bool full : {false, true}) {
        EXPECT_EQ(ladder_line(*step, {.full = full}).find('\x1B'), std::string::npos);
        EXPECT_NE(ladder_line(*step, {.full = full, .colour = true}).find('\x1B'), std::string::npos);
    }
}

TEST_F(Ladder, JsonOfACall) {
    register_line();
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_al_of_init, 0);
    const std::optional<Step> step =
        traffic.next(Sample(KEX_TAP_ONE_WAY_CALL, in, 1, "fxs_plugin", 2)
                         .call(3, kApplication, "event")
                         .with_text("plugin_name", "fx\"s")
                         .with_bytes("event", event_bytes(4, LIBVOICE_EVENT_al_of, parameters))
                         .record());
    const std::string json = json_line(*step);
    const auto expect = [&json](const char *part) {
        EXPECT_NE(json.find(part), std::string::npos) << part << "\nin " << json;
    };
    expect(R"({"kind":"one_way_call","time_ns":2000000,"from":{"process":"fxs_plugin","pid":1001,"connection":1,)");
    expect(R"("endpoint":"FXS1"},"to":{"process":"voice_application","pid":1000},"bytes":100,"serial":3,)");
    expect(
        R"("path":"VoiceService.VoiceApplication","function":"event","flags":0,"arguments":{"plugin_name":"fx\"s",)");
    expect(
        R"("record":{"kind":"event","endpoint":4,"identifier":{"id":537462016,"name":"LIBVOICE_EVENT_al_of","meaning":"off hook"},)"
        R"("line":1,"items":[{"id":604570882,"name":"LIBVOICE_PARAM_al_of_init","meaning":"already off hook","value":false,"bytes":"00000000","text":"false"}]}})");
}

TEST_F(Ladder, JsonOfAReply) {
    line(Sample(KEX_TAP_CALL, in, 1, "x", 10).call(1, kApplication, "register_plugin"));
    const std::optional<Step> step = traffic.next(
        Sample(KEX_TAP_REPLY, out, 1, "x", 12).serial(1).with_error(5, "d", "i").with_bool("", false).record());
    EXPECT_EQ(
        json_line(*step),
        R"({"kind":"reply","time_ns":12000000,"from":{"process":"voice_application","pid":1000},)"
        R"("to":{"process":"x","pid":1001,"connection":1},"bytes":100,"serial":1,"path":"VoiceService.VoiceApplication",)"
        R"("function":"register_plugin","result":false,"errors":[{"code":5,"description":"d","info":"i"}],"elapsed_ms":2.000})");
}

TEST_F(Ladder, JsonOfItemsHoldsTypedValuesAndBytes) {
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_tdmc_gain, static_cast<uint32_t>(-3));
    add_item(parameters, LIBVOICE_PARAM_tdmc_rxgain, {});
    add_text(parameters, LIBVOICE_PARAM_zil_ep_dispname, "Aunt \"M\"");
    add_text(parameters, LIBVOICE_PARAM_andisp_data_db, kCallerBlock);
    add_item(parameters, LIBVOICE_PARAM_zil_fxs_power, {1, 0xAB});
    const std::optional<Step> step = traffic.next(Sample(KEX_TAP_ONE_WAY_CALL, out, 1, "fxs_plugin")
                                                      .call(3, "fxs_a.EndPoint.FXS2", "set")
                                                      .with_bytes("param_set_params", set_bytes(parameters))
                                                      .record());
    const std::string json = json_line(*step);
    for (const char *part :
         {R"("meaning":"gain","value":-3,"bytes":"fdffffff","text":"-3 dB"})",
          R"("meaning":"receive gain","value":null,"bytes":"","text":""})",
          R"("value":"Aunt \"M\"","bytes":"41756e7420224d2200","text":"\"Aunt \"M\"\""})",
          R"("value":{"kind":"call","number":"101","name":"FXS1","time":"11211138","called":"102"},"bytes":"3830)",
          R"("value":{"hex":"01ab"},"bytes":"01ab","text":"01 AB"})"})
        EXPECT_NE(json.find(part), std::string::npos) << part << "\nin " << json;
}

TEST_F(Ladder, JsonOfARegistrationHoldsItsCodecs) {
    Bytes codecs;
    for (const uint32_t word : {8u, 8u, 2u, 64000u, 130u, 98u, 2u, 32000u})
        append_word(codecs, word);
    const std::optional<Step> step = traffic.next(Sample(KEX_TAP_CALL, in, 1, "fxs_plugin")
                                                      .call(3, kApplication, "register_endpoint")
                                                      .with_bytes("codeclist", codecs)
                                                      .record());
    EXPECT_NE(json_line(*step).find(
                  R"("codecs":[{"codec":8,"name":"PCMA","payload_type":8,"ptime_mask":2,"max_bitrate":64000},)"
                  R"({"codec":130,"name":"G726-32","payload_type":98,"ptime_mask":2,"max_bitrate":32000}])"),
              std::string::npos);
}

class Filtered : public Ladder {
protected:
    Filtered() {
        register_line();
        event = *traffic.next(Sample(KEX_TAP_ONE_WAY_CALL, in, 1, "fxs_plugin")
                                  .call(3, kApplication, "event")
                                  .with_bytes("event", event_bytes(4, LIBVOICE_EVENT_al_of))
                                  .record());
        call = *traffic.next(Sample(KEX_TAP_CALL, in, 1, "fxs_plugin")
                                 .call(4, kApplication, "register_plugin")
                                 .with_text("plugin_name", "fxs_a")
                                 .record());
        reply = *traffic.next(Sample(KEX_TAP_REPLY, out, 1, "fxs_plugin").serial(4).with_bool("", true).record());
        lost = *traffic.next(Sample(KEX_TAP_LOST, in, 0, "").lost(1).record());
    }
    Step event, call, reply, lost;
};

TEST_F(Filtered, WithoutARuleEverythingPasses) {
    for (const Step &step : {event, call, reply, lost})
        EXPECT_TRUE(Filter{}.passes(step));
}

TEST_F(Filtered, ByEndpoint) {
    EXPECT_TRUE(Filter{.endpoints = {"FXS1"}}.passes(event));
    EXPECT_TRUE(Filter{.endpoints = {"fxs_a.FXS1"}}.passes(event));
    EXPECT_FALSE(Filter{.endpoints = {"FXS2"}}.passes(event));
    EXPECT_FALSE(Filter{.endpoints = {"fxs_b.FXS1"}}.passes(event));
    EXPECT_FALSE(Filter{.endpoints = {"FXS1"}}.passes(call));
}

TEST_F(Filtered, ByPluginOrProcess) {
    EXPECT_TRUE(Filter{.plugins = {"fxs_a"}}.passes(event));
    EXPECT_TRUE(Filter{.plugins = {"fxs_plugin"}}.passes(event));
    EXPECT_FALSE(Filter{.plugins = {"dect"}}.passes(event));
}

TEST_F(Filtered, ByFunctionWithTheReply) {
    const Filter filter{.functions = {"register_plugin"}};
    EXPECT_TRUE(filter.passes(call));
    EXPECT_TRUE(filter.passes(reply));
    EXPECT_FALSE(filter.passes(event));
}

TEST_F(Filtered, ByPackage) {
    EXPECT_TRUE(Filter{.packages = {"al"}}.passes(event));
    EXPECT_FALSE(Filter{.packages = {"cg"}}.passes(event));
    EXPECT_FALSE(Filter{.packages = {"al"}}.passes(call));
}

TEST_F(Filtered, ByDirectionOfTheCall) {
    EXPECT_TRUE(Filter{.direction = Filter::Direction::in}.passes(call));
    EXPECT_TRUE(Filter{.direction = Filter::Direction::in}.passes(reply));
    EXPECT_FALSE(Filter{.direction = Filter::Direction::out}.passes(reply));
}

TEST_F(Filtered, LostCopiesAlwaysPass) {
    EXPECT_TRUE((Filter{.endpoints = {"FXS9"}, .functions = {"x"}}.passes(lost)));
}

TEST_F(Filtered, NamesThatNothingCameByAreTold) {
    Unseen unseen({.endpoints = {"FXS1", "fxs_a.FXS1", "FXS9"}, .plugins = {"fxs_a", "fxs_plugin", "dect\x1B"}});
    unseen.note(call);
    unseen.note(event);
    EXPECT_EQ(unseen.sentences(), (std::vector<std::string>{"nothing of a plugin 'dect\\x1B' so far; seen: fxs_a",
                                                            "nothing of an endpoint 'FXS9' so far; seen: fxs_a"}));
}

TEST_F(Filtered, NamesThatCameByAreShownPrintable) {
    Step step = call;
    step.peer.plugin = "fxs\x1B[2J\xC2\x9B";
    Unseen unseen({.plugins = {"dect1"}});
    unseen.note(step);
    EXPECT_EQ(unseen.sentences(),
              std::vector<std::string>{"nothing of a plugin 'dect1' so far; seen: fxs\\x1B[2J\\xC2\\x9B"});
}

TEST_F(Filtered, NothingCameByAtAll) {
    EXPECT_EQ(Unseen({.plugins = {"fxs_a"}}).sentences(),
              std::vector<std::string>{"nothing of a plugin 'fxs_a' so far; no plugin has come by"});
    EXPECT_TRUE(Unseen({.functions = {"event"}}).sentences().empty());
}

TEST(KnownNames, PackagesOfTheVocabulary) {
    for (const char *package : {"g", "root", "al", "cg", "zil", "sdp"})
        EXPECT_EQ(package_problem(package), "") << package;
    EXPECT_EQ(package_problem("AL").find("no package 'AL'; there are ajb al alert andisp "), 0u);
    EXPECT_EQ(package_problem("").find("no package ''"), 0u);
}

TEST(KnownNames, FunctionsOfTheVoiceSystem) {
    for (const char *function : {"init", "event", "register_endpoint", "createDspChannel", "list"})
        EXPECT_TRUE(is_known_function(function)) << function;
    for (const char *function : {"", "Event", "EndPoint", "regster"})
        EXPECT_FALSE(is_known_function(function)) << function;
}

} // namespace

} // namespace voicectl

// SPDX-License-Identifier: MIT
// From tap records to the long ladder: names of endpoints, calls joined with their outcomes, waits.
#include "traffic.h"

#include "ladder_fixture.h"

namespace voicectl {

namespace {

TEST_F(Ladder, ConnectionShowsTheProcess) {
    EXPECT_EQ(line(Sample(KEX_TAP_CONNECTED, in, 1, "fxs_plugin", 3'661'007).text("")),
              "01:01:01.007  fxs_plugin               --> voice_application  connected, process 1001");
}

TEST_F(Ladder, ConnectionOfBeforeTheWatchingSaysSo) {
    EXPECT_EQ(line(Sample(KEX_TAP_CONNECTED, in, 1, "fxs_plugin", 3'661'007).text("before")),
              "01:01:01.007  fxs_plugin               --> voice_application  connected before, process 1001");
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
    EXPECT_EQ(line(endpoint_refused()),
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

} // namespace

} // namespace voicectl

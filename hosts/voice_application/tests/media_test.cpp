// SPDX-License-Identifier: MIT
// Media of calls: which codec, and what both plugins are told.
#include "calls.h"
#include "commands.h"
#include "media_fixture.h"

#include <arpa/inet.h>
#include <cstring>
#include <sys/socket.h>

using fake::bus;
using testing::Contains;
using testing::HasSubstr;

namespace application_test {
namespace {

// ---------------------------------------------------------------------------------------------------------- The codec

class CodecChoice : public Media {
protected:
    // "PCMA" as the number of the codec chosen, or the reason.
    std::string choose(std::initializer_list<voice_codec_t> from, std::initializer_list<voice_codec_t> to) {
        voice_codec_t codec = {};
        const char *why =
            media_choose_codec(line_of_endpoint(telephone("T1", from)), line_of_endpoint(telephone("T2", to)), &codec);
        return why != nullptr ? why : std::to_string(codec.codec);
    }
};

TEST_F(CodecChoice, FollowsTheCallersOrder) {
    EXPECT_EQ(choose({kPcmu, kPcma}, {kPcma, kPcmu}), std::to_string(LIBVOICE_CODEC_PCMU));
}

TEST_F(CodecChoice, PassesOverWhatTheCalleeDoesNotOffer) {
    EXPECT_EQ(choose({kG722, kPcma}, {kPcmu, kPcma}), std::to_string(LIBVOICE_CODEC_PCMA));
}

TEST_F(CodecChoice, FailsWithoutACommonOne) {
    EXPECT_EQ(choose({kG722}, {kPcmu, kPcma}), "no common codec");
}

TEST_F(CodecChoice, TakesOnlyWhatTheSettingsAllow) {
    the_plan.codecs[0] = LIBVOICE_CODEC_PCMU;
    the_plan.codec_count = 1;
    EXPECT_EQ(choose({kPcma, kPcmu}, {kPcma, kPcmu}), std::to_string(LIBVOICE_CODEC_PCMU));
}

TEST_F(CodecChoice, FailsWhenTheSettingsAllowNone) {
    the_plan.codecs[0] = LIBVOICE_CODEC_G722;
    the_plan.codec_count = 1;
    EXPECT_EQ(choose({kPcma, kPcmu}, {kPcma, kPcmu}), "no common codec");
}

TEST_F(CodecChoice, PassesOverPayloadTypesThatRtpDoesNotHave) {
    voice_codec_t wrong = kPcma;
    wrong.payload_type = 128;
    EXPECT_EQ(choose({wrong, kPcmu}, {kPcma, kPcmu}), std::to_string(LIBVOICE_CODEC_PCMU));
}

TEST_F(Media, ConnectionNamesModeCodecAndPayload) {
    talk(telephone("T1", {kG722}), telephone("T2", {kPcma, kG722}));
    const std::string info = last("create").parameter("cnx_info").data;
    const std::string wanted = items(VOICE_MODE_SEND_RECEIVE, kG722);
    EXPECT_EQ(info.size(), static_cast<size_t>(LIBVOICE_CNX_INFO_BYTES));
    EXPECT_EQ(info.substr(0, 8 + wanted.size()),
              word(VOICE_CNX_VERSION) + word(static_cast<uint32_t>(wanted.size())) + wanted);
}

TEST_F(Media, DescriptorsAreMediaControlAndNoFax) {
    talk(telephone("T1"), telephone("T2"));
    const fake::Value descriptors = last("create").parameter("filedesc");
    ASSERT_EQ(descriptors.items.size(), 3u);
    EXPECT_GE(descriptors.items[0].number, 0);
    EXPECT_GE(descriptors.items[1].number, 0);
    EXPECT_EQ(descriptors.items[2].number, -1);
}

TEST_F(Media, AddressesTravelInsteadOfDescriptors) {
    libvoice_set_convert_media(1);
    const int32_t from = telephone("T1"), to = telephone("T2");
    talk(from, to);
    const call *made = line_of_endpoint(from)->calls[0];
    const std::string info = last("create").parameter("cnx_info").data; // that of the callee
    sockaddr_in local = {}, remote = {};
    ASSERT_EQ(info.size(), static_cast<size_t>(LIBVOICE_CNX_INFO_SOCKET_BYTES));
    memcpy(&local, info.data() + 704, sizeof local);
    memcpy(&remote, info.data() + 720, sizeof remote);
    EXPECT_EQ(ntohs(local.sin_port), made->to.port);
    EXPECT_EQ(ntohs(remote.sin_port), made->from.port);
    EXPECT_EQ(local.sin_addr.s_addr, inet_addr(the_plan.address));
    EXPECT_EQ(remote.sin_addr.s_addr, inet_addr(the_plan.address));
    EXPECT_EQ(local.sin_family, AF_INET);
}

TEST_F(Media, HoldByAddressDestroysAndCreates) {
    libvoice_set_convert_media(1);
    const int32_t from = telephone("T1"), to = telephone("T2");
    talk(from, to);
    app().sent();
    app().event(from, LIBVOICE_EVENT_al_fl);
    EXPECT_EQ(app().sent(), "T1: destroy, cg_dt | T2: destroy, srvtn_ht");
    app().event(from, LIBVOICE_EVENT_al_fl);
    EXPECT_EQ(app().sent(), "T1: silence, create | T2: silence, create");
}

// A call without media would stay silent until somebody hangs up.
TEST_F(Media, CodecThatCannotBeSetUpEndsTheCall) {
    char command[] = "codec 101 PCMU";
    libvoice_set_convert_media(1);
    const int32_t from = telephone("T1", {kPcma, kPcmu}), to = telephone("T2", {kPcma, kPcmu});
    talk(from, to);
    app().said();
    bus().fail_always("kex_sendRequest");
    EXPECT_NE(command_run(command), nullptr);
    EXPECT_THAT(app().said(), Contains(testing::StartsWith("call N 101->102 ended: ")));
    EXPECT_EQ(app().state(from), "busy");
    EXPECT_EQ(app().state(to), "busy");
}

// Else the codec of a call could get the number that its telephone events have.
TEST_F(Media, ChangedCodecHasThePayloadTypeOfTheCallerToo) {
    const voice_codec_t callers = {LIBVOICE_CODEC_G726_32, 98, VOICE_PTIME_20MS, 32000};
    const voice_codec_t callees = {LIBVOICE_CODEC_G726_32, 102, VOICE_PTIME_20MS, 32000};
    const voice_codec_t events = {LIBVOICE_CODEC_TELEPHONE_EVENT, 102, VOICE_PTIME_20MS, 0};
    char command[] = "codec 102 G726-32";
    talk(telephone("T1", {kPcma, callers, events}), telephone("T2", {kPcma, callees, events}));
    ASSERT_EQ(command_run(command), nullptr);
    EXPECT_THAT(last("modify").parameter("cnx_info").data, HasSubstr(items(VOICE_MODE_SEND_RECEIVE, callers)));
}

std::string cause(int32_t number) {
    return item(LIBVOICE_PARAM_g_cause_generalcause, word(static_cast<uint32_t>(number))) +
           item(LIBVOICE_PARAM_g_cause_failurecause, std::string("no media sockets\0", 17));
}

// Another process took a port between our look and the plugin's opening.
TEST_F(Media, PortsThatAPluginCannotOpenAreLeftForOthers) {
    libvoice_set_convert_media(1);
    const int32_t from = telephone("T1"), to = telephone("T2");
    talk(from, to);
    app().sent();
    app().said();
    const call *made = line_of_endpoint(from)->calls[0];
    for (int tries = 1; tries <= 6; tries++) { // two parties, three times each
        const uint16_t before[] = {made->from.port, made->to.port};
        app().event(tries % 2 != 0 ? from : to, LIBVOICE_EVENT_g_cause, cause(VOICE_CAUSE_FAILURE_TEMPORARY));
        EXPECT_EQ(app().sent(), "T1: destroy, create | T2: destroy, create");
        EXPECT_LINES(app().said(), std::string("call N 101->102 tries other media ports: ") +
                                       (tries % 2 != 0 ? "101" : "102") + ": no media sockets (cause 3)");
        for (uint16_t port : before) {
            EXPECT_NE(made->from.port, port);
            EXPECT_NE(made->to.port, port);
        }
    }
    app().event(to, LIBVOICE_EVENT_g_cause, cause(VOICE_CAUSE_FAILURE_TEMPORARY));
    EXPECT_THAT(app().said(), Contains("call N 101->102 ended: 102: no media sockets (cause 3)"));
    EXPECT_EQ(app().state(from), "busy");
}

// It reports what it failed at before it learned of the hold.
TEST_F(Media, FailureThatArrivesAfterHoldLeavesTheCallHeld) {
    libvoice_set_convert_media(1);
    const int32_t from = telephone("T1"), to = telephone("T2");
    talk(from, to);
    app().event(from, LIBVOICE_EVENT_al_fl);
    app().sent();
    app().said();
    app().event(to, LIBVOICE_EVENT_g_cause, cause(VOICE_CAUSE_FAILURE_TEMPORARY));
    EXPECT_EQ(app().sent(), "");
    EXPECT_LINES(app().said());
    EXPECT_EQ(app().state(to), "held");
    app().event(to, LIBVOICE_EVENT_g_cause, cause(VOICE_CAUSE_UNSUPPORTED));
    EXPECT_THAT(app().said(), Contains("call N 101->102 ended: 102: no media sockets (cause 6)"));
}

// It is about the call before: this one has had no media yet.
TEST_F(Media, FailureThatArrivesInTheNextCallLeavesThatRinging) {
    libvoice_set_convert_media(1);
    const int32_t from = telephone("T1"), to = telephone("T2"), next = telephone("T3");
    talk(from, to);
    app().event(to, LIBVOICE_EVENT_al_on);
    app().event(next, LIBVOICE_EVENT_al_of);
    app().dial(next, "102");
    app().sent();
    app().said();
    app().event(to, LIBVOICE_EVENT_g_cause, cause(VOICE_CAUSE_FAILURE_TEMPORARY));
    EXPECT_EQ(app().sent(), "");
    EXPECT_LINES(app().said());
    EXPECT_EQ(app().state(to), "ringing");
}

TEST_F(Media, OtherFailuresEndTheCallAtOnce) {
    const int32_t from = telephone("T1"), to = telephone("T2");
    talk(from, to);
    app().event(to, LIBVOICE_EVENT_g_cause, cause(VOICE_CAUSE_FAILURE_TEMPORARY));
    EXPECT_THAT(app().said(), Contains("call N 101->102 ended: 102: no media sockets (cause 3)"))
        << "with descriptors it was no port";
    app().event(from, LIBVOICE_EVENT_al_on);
    app().event(to, LIBVOICE_EVENT_al_on);
    libvoice_set_convert_media(1);
    talk(from, to);
    app().event(to, LIBVOICE_EVENT_g_cause, cause(VOICE_CAUSE_UNSUPPORTED));
    EXPECT_THAT(app().said(), Contains("call N 101->102 ended: 102: no media sockets (cause 6)"));
}

TEST_F(Media, WhatCannotBeSentIsTriedAgainOnOtherPorts) {
    const int32_t from = telephone("T1"), to = telephone("T2");
    app().event(from, LIBVOICE_EVENT_al_of);
    app().dial(from, "102");
    app().sent();
    bus().fail("kex_sendRequest", 4); // two silences, one "create", and this one
    app().event(to, LIBVOICE_EVENT_al_of);
    EXPECT_EQ(app().sent(), "T1: silence, create, destroy, create | T2: silence, destroy, create");
    EXPECT_EQ(app().state(from), "talking");
}

TEST_F(Media, WhatCanNeverBeSentEndsTheCall) {
    const int32_t from = telephone("T1"), to = telephone("T2");
    app().event(from, LIBVOICE_EVENT_al_of);
    app().dial(from, "102");
    app().said();
    bus().fail_always("kex_sendRequest");
    app().event(to, LIBVOICE_EVENT_al_of);
    EXPECT_THAT(app().said(), Contains(HasSubstr("call N 101->102 ended: ")));
    EXPECT_EQ(app().state(from), "busy");
    EXPECT_EQ(app().state(to), "busy");
}

// Where both can send keys as telephone events, both are told with which payload type: the caller's.
TEST_F(Media, TelephoneEventsTravelBesideTheCodec) {
    const voice_codec_t callers = {LIBVOICE_CODEC_TELEPHONE_EVENT, 97, VOICE_PTIME_20MS, 0};
    const voice_codec_t callees = {LIBVOICE_CODEC_TELEPHONE_EVENT, 101, VOICE_PTIME_20MS, 0};
    const std::string up = item(LIBVOICE_PARAM_sdp_dr_upstream_payload, word(97)),
                      down = item(LIBVOICE_PARAM_sdp_dr_downstream_payload, word(97));
    const int32_t first = telephone("FXS1", {callers, kPcma}), second = telephone("FXS2", {kPcma, callees});
    talk(first, second);
    EXPECT_THAT(last("create").parameter("cnx_info").data, HasSubstr(up + down));
    app().event(first, LIBVOICE_EVENT_al_on);
    app().event(second, LIBVOICE_EVENT_al_on);
    const int32_t third = telephone("FXS3", {kPcma});
    talk(first, third);
    EXPECT_THAT(last("create").parameter("cnx_info").data, testing::Not(HasSubstr(up))) << "not to who cannot";
}

} // namespace
} // namespace application_test

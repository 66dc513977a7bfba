// SPDX-License-Identifier: MIT
// Media of calls: which codec, which ports, and what both plugins are told.
#include "application.h"
#include "calls.h"
#include "commands.h"
#include "local_sockets.h"
#include "media.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <memory>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

using application_test::ApplicationTest;
using application_test::item;
using application_test::kG722;
using application_test::kPcma;
using application_test::kPcmu;
using application_test::word;
using fake::bus;
using fake::RequestRecord;
using testing::Contains;
using testing::HasSubstr;

namespace {

class Media : public ApplicationTest {
protected:
    Media() { app().register_plugin("fxs1"); }

    int32_t telephone(const char *name, std::initializer_list<voice_codec_t> codecs = {kPcma, kPcmu}) {
        return app().register_endpoint("fxs1", name, VOICE_ENDPOINT_FXS, codecs);
    }
    void talk(int32_t from, int32_t to) {
        app().event(from, LIBVOICE_EVENT_al_of);
        app().dial(from, line_of_endpoint(to)->number);
        app().event(to, LIBVOICE_EVENT_al_of);
    }
    static const RequestRecord &last(const char *function) {
        unsigned id = bus().requests_made();
        while (id > 0 && bus().record(id).function != function)
            id--;
        return bus().record(id);
    }
};

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

// ----------------------------------------------------------------------------------------------------------- The ports

// A UDP socket on a port of our address, as another process may have one.
class Occupied {
public:
    explicit Occupied(uint16_t port) : socket_(voice_test::bound_socket(port)) { EXPECT_GE(socket_, 0) << port; }
    ~Occupied() { close(socket_); }
    Occupied(const Occupied &) = delete;
    Occupied &operator=(const Occupied &) = delete;

private:
    int socket_;
};

class Ports : public Media {
protected:
    uint16_t first() const { return the_plan.first_port; }
    // A range of `count` ports from the first one, which is even; looking begins there.
    void use(uint16_t count) { the_plan.last_port = static_cast<uint16_t>(first() + count - 1); }
    // The next ports as distances from the first; 0 ports are "none".
    std::vector<int> take(int count) {
        std::vector<int> result;
        for (int i = 0; i < count; i++) {
            const uint16_t port = media_take_ports();
            result.push_back(port == 0 ? -1 : port - first());
        }
        return result;
    }
    // Where looking begins depends on what this process did before: bring it to the first port.
    void rewind() {
        const uint16_t last = the_plan.last_port;
        while (take(1)[0] != 0)
            ASSERT_EQ(last, the_plan.last_port);
    }
};

TEST_F(Ports, AreEvenAndMoveOn) {
    use(8);
    rewind();
    EXPECT_THAT(take(4), testing::ElementsAre(2, 4, 6, 0));
}

TEST_F(Ports, BeginAtTheFirstEvenOneOfTheRange) {
    the_plan.first_port++;
    the_plan.last_port = static_cast<uint16_t>(first() + 6);
    EXPECT_THAT(take(6), testing::Each(testing::AnyOf(1, 3, 5)));
}

TEST_F(Ports, NeedANeighbourWithinTheRange) {
    use(5);
    rewind();
    EXPECT_THAT(take(3), testing::ElementsAre(2, 0, 2)) << "the fifth has none";
}

TEST_F(Ports, OfOthersArePassedOver) {
    use(8);
    rewind();
    const Occupied media(static_cast<uint16_t>(first() + 2)), control(static_cast<uint16_t>(first() + 5));
    EXPECT_THAT(take(3), testing::ElementsAre(6, 0, 6));
}

TEST_F(Ports, EndWhenAllAreTaken) {
    use(4);
    const Occupied one(first()), two(static_cast<uint16_t>(first() + 2));
    EXPECT_THAT(take(2), testing::ElementsAre(-1, -1));
}

TEST_F(Ports, AreLookedForAmong128PairsAndFurtherOnTheNextTime) {
    use(1000);
    std::vector<std::unique_ptr<Occupied>> others;
    int last = 0;
    for (int i = 0; i < 1000 && last != 998; i++) // the next one is the first of the range
        last = take(1)[0];
    ASSERT_EQ(last, 998);
    for (int i = 0; i < 128; i++)
        others.push_back(std::make_unique<Occupied>(static_cast<uint16_t>(first() + 2 * i)));
    EXPECT_EQ(take(1)[0], -1);
    EXPECT_STREQ(media_ports_missing(), "128 pairs of media ports in a row are taken");
    EXPECT_EQ(take(1)[0], 256) << "it goes on where it was";
}

// Not that ports are taken: no other port would do.
TEST_F(Ports, OfAnAddressOfAnotherMachineAreNotLookedFor) {
    const int32_t from = telephone("T1"), to = telephone("T2");
    strcpy(the_plan.address, "192.0.2.1");
    talk(from, to);
    EXPECT_THAT(app().said(),
                Contains(std::string("call N 101->102 ended: no media at 192.0.2.1: ") + strerror(EADDRNOTAVAIL)));
}

TEST_F(Ports, AreNotSaidToBeTakenWhenNoDescriptorIsLeft) {
    const int32_t from = telephone("T1"), to = telephone("T2");
    app().event(from, LIBVOICE_EVENT_al_of);
    app().dial(from, "102");
    app().said();
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    app().event(to, LIBVOICE_EVENT_al_of);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_THAT(app().said(), Contains(std::string("call N 101->102 ended: no media at ") + the_plan.address + ": " +
                                       strerror(EMFILE)));
    app().event(from, LIBVOICE_EVENT_al_on);
    app().event(to, LIBVOICE_EVENT_al_on);
    talk(from, to);
    EXPECT_EQ(app().state(to), "talking") << "there is one again";
}

TEST_F(Ports, OfACallAreNotGivenOutAgain) {
    libvoice_set_convert_media(1); // nobody here has the sockets open
    use(8);
    const int32_t from = telephone("T1"), to = telephone("T2");
    talk(from, to);
    const call *made = line_of_endpoint(from)->calls[0];
    EXPECT_NE(made->from.port, made->to.port);
    for (const int port : take(4)) {
        EXPECT_NE(port, made->from.port - first());
        EXPECT_NE(port, made->to.port - first());
    }
}

TEST_F(Ports, WithoutAnyACallEnds) {
    const int32_t from = telephone("T1"), to = telephone("T2");
    use(4);
    const Occupied one(first()), two(static_cast<uint16_t>(first() + 2));
    app().sent();
    talk(from, to);
    EXPECT_THAT(app().said(), Contains("call N 101->102 ended: no media ports left"));
    EXPECT_EQ(app().sent(), "T1: cg_dt, silence, cg_rt, silence, cg_bt | T2: al_ri, silence, cg_bt");
    EXPECT_EQ(app().state(from), "busy");
}

// ---------------------------------------------------------------------------------------------- What plugins are told

std::string items(uint32_t mode, const voice_codec_t &codec) {
    return item(LIBVOICE_PARAM_sdp_stream_mode, word(mode)) +
           item(LIBVOICE_PARAM_sdp_upstream_codec, word(codec.codec)) +
           item(LIBVOICE_PARAM_sdp_upstream_ptime, word(20)) +
           item(LIBVOICE_PARAM_sdp_upstream_payload, word(codec.payload_type)) +
           item(LIBVOICE_PARAM_sdp_downstream_codec, word(codec.codec)) +
           item(LIBVOICE_PARAM_sdp_downstream_ptime, word(20)) +
           item(LIBVOICE_PARAM_sdp_downstream_payload, word(codec.payload_type));
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

// ----------------------------------------------------------------------------------------------------- The conference

class Conference : public Media {
protected:
    int32_t host, first, second;

    Conference() : host(telephone("T1")), first(telephone("T2")), second(telephone("T3")) {
        talk(host, first);
        app().event(host, LIBVOICE_EVENT_al_fl);
        app().dial(host, "103");
        app().event(second, LIBVOICE_EVENT_al_of);
        app().sent();
        app().said();
    }
    void join() { app().event(host, LIBVOICE_EVENT_al_fl); }
};

TEST_F(Conference, StreamsBelongToTheContextAndToTheTwoCalls) {
    join();
    EXPECT_LINES(app().said(), "line 102 talking", "conference N 101: 102, 103");
    const fake::Value context = last("create_ctx").parameter("ctx_id");
    EXPECT_NE(context.number, 0);
    const RequestRecord &stream = last("add_stream");
    EXPECT_EQ(stream.path, "fxs1");
    EXPECT_EQ(stream.parameter("ctx_id").str(), context.str());
    EXPECT_EQ(stream.parameter("ep_id").number, host);
    EXPECT_EQ(stream.parameter("line_id").number, 1);
    const std::string wanted = items(VOICE_MODE_SEND_RECEIVE, kPcma);
    EXPECT_EQ(stream.parameter("stream_info").data.substr(0, 16 + wanted.size()),
              word(2) + word(VOICE_MODE_SEND_RECEIVE) + word(VOICE_CNX_VERSION) +
                  word(static_cast<uint32_t>(wanted.size())) + wanted);
    EXPECT_EQ(stream.parameter("filedesc").items.size(), 3u);
}

TEST_F(Conference, StreamsHaveDescriptorsAlsoWhenAddressesTravel) {
    libvoice_set_convert_media(1);
    join();
    EXPECT_GE(last("add_stream").parameter("filedesc").items.at(0).number, 0);
}

TEST_F(Conference, ThatCannotBeMadeEndsBothCalls) {
    bus().fail("kex_sendRequest", 6); // a silence, four "destroy", and this one
    join();
    const std::vector<std::string> said = app().said();
    EXPECT_THAT(said, Contains(HasSubstr("conference of 101 refused: ")));
    EXPECT_THAT(said, Contains(HasSubstr("call N 101->102 ended: ")));
    EXPECT_THAT(said, Contains(HasSubstr("call N 101->103 ended: ")));
    EXPECT_EQ(app().state(host), "busy");
    EXPECT_EQ(app().state(first), "busy");
    EXPECT_EQ(app().state(second), "busy");
}

TEST_F(Conference, EndIsSaidAfterItsCalls) {
    join();
    app().said();
    app().event(host, LIBVOICE_EVENT_al_on);
    EXPECT_LINES(app().said(), "call N 101->102 ended: 101 hung up", "line 102 busy",
                 "call N 101->103 ended: 101 hung up", "line 103 busy", "conference N ended", "line 101 idle");
}

TEST_F(Conference, EndsWithItsEndpointAndItsPlugin) {
    join();
    app().said();
    app().deregister_endpoint(host);
    EXPECT_THAT(app().said(), Contains("conference N ended"));
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

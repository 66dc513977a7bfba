// SPDX-License-Identifier: MIT
// How packets leave: when, and what is said when one cannot.
#include "served_functions.h"
#include "support/served_bus.h"
#include "support/shifted_clock.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <sys/socket.h>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

int send_error; // of the next send of a single packet; 0: it is sent

bool send_fails() {
    if (send_error == 0)
        return false;
    errno = send_error;
    send_error = 0;
    return true;
}

} // namespace

extern "C" {

// The linker sends the bus's calls here (--wrap).
ssize_t __real_send(int fd, const void *packet, size_t size, int flags);
ssize_t __wrap_send(int fd, const void *packet, size_t size, int flags);
ssize_t __real_sendmsg(int fd, const msghdr *message, int flags);
ssize_t __wrap_sendmsg(int fd, const msghdr *message, int flags);

ssize_t __wrap_send(int fd, const void *packet, size_t size, int flags) {
    return send_fails() ? -1 : __real_send(fd, packet, size, flags);
}

ssize_t __wrap_sendmsg(int fd, const msghdr *message, int flags) {
    return send_fails() ? -1 : __real_sendmsg(fd, message, flags);
}

} // extern "C"

namespace {

class Send : public TwoBuses {
protected:
    Send() {
        served::reset();
        served::declare(server);
    }
    ~Send() override { served::reset(); }
};

TEST_F(Send, ErrorThatIsNoneOfTheUsualEndsThatRequestOnly) {
    CapturedTrace trace;
    static std::vector<std::string> lines;
    lines.clear();
    request_t *r = request_create_executeFunction("Probe", "note", 0);
    request_setDoneHandler(r, [](request_t *done) { lines = lines_of(done); });
    turn_until_idle();
    ASSERT_TRUE(kex_sendRequest(client, to_server, r));
    send_error = EIO;
    EXPECT_TRUE(turn_until([] { return !lines.empty(); }));
    EXPECT_THAT(lines, ElementsAre("error 65540 Packet not sent: Input/output error"));
    EXPECT_THAT(trace.text(), HasSubstr("KEX     - [x]a packet of "));
    EXPECT_THAT(trace.text(), HasSubstr(" could not be sent: Input/output error\n"));
    EXPECT_THAT(served::log, ElementsAre());
    request_destroy(r);
    request_destroy(call("Probe", "note"));
    EXPECT_THAT(served::log, ElementsAre("note nothing")) << "the connection stays";
}

TEST_F(Send, KernelWithoutMemoryIsAskedAgain) {
    for (int error : {ENOBUFS, ENOMEM, ETOOMANYREFS, EINTR, EAGAIN}) {
        send_error = error;
        request_destroy(call("Probe", "note"));
        EXPECT_EQ(send_error, 0);
        send_error = error;
        request_destroy(call("Probe", "note", {{"v", descriptor(STDIN_FILENO)}}));
        EXPECT_EQ(send_error, 0);
    }
    EXPECT_EQ(served::log.size(), 10u);
}

// Calls of a raw peer with a text of so many bytes, then one whose function looks what has been answered.
size_t answered_within_the_turn(kex_t *bus, const std::string &socket, size_t bytes) {
    RawPeer raw(socket);
    size_t answered = 0;
    served::probe = [&](function_call_t *call, argument_list_t *, variant_t *) {
        const auto packets = raw.receive_all();
        answered = static_cast<size_t>(std::count_if(packets.begin(), packets.end(),
                                                     [](const auto &packet) { return kind_of(packet) == kReply; }));
        fcall_destroy(call);
        return 0;
    };
    raw.send(hello());
    turn_until_idle({bus});
    raw.receive_all();
    // A peer that sends many packets is read in batches of 1, 2, 4 and 8: what counts are the last three of these.
    for (int i = 0; i < 12; i++)
        raw.send(Packet(kOneWayCall, 1).text("Probe").text("note").byte(0));
    for (int i = 0; i < 2; i++)
        raw.send(
            Packet(kCall, 1).text("Probe").text("echo").byte(1).text("text").byte(0).text(std::string(bytes, 'x')));
    raw.send(Packet(kCall, 2).text("Probe").text("run").byte(0));
    const support::ClockStopped one_turn; // does for all of them
    turn_until_idle({bus});
    return answered;
}

TEST_F(Send, RepliesPastSixtyFourKibibytesLeaveWithinTheTurn) {
    EXPECT_EQ(answered_within_the_turn(server, socket, 40000), 2u);
}

TEST_F(Send, FewerWaitForItsEnd) {
    EXPECT_EQ(answered_within_the_turn(server, socket, 10000), 0u);
}

// More than one system call carries.
TEST_F(Send, RepliesWithAllTheirDescriptorsLeaveOneAfterTheOther) {
    served::probe = [](function_call_t *call, argument_list_t *, variant_t *value) {
        variant_initialize(value, VARIANT_LIST);
        const variant_t one = descriptor(STDIN_FILENO);
        for (int i = 0; i < 64; i++)
            variant_list_add(variant_da_list(value), &one);
        fcall_destroy(call);
        return 0;
    };
    RawPeer raw(socket);
    raw.send(hello());
    turn_until_idle();
    raw.receive_all();
    for (uint32_t serial = 1; serial <= 6; serial++) // the last three are read together
        ASSERT_TRUE(raw.send(support::call(serial, "Probe", serial <= 3 ? "note" : "run")));
    turn_until_idle();
    std::vector<uint32_t> serials;
    for (const std::string &packet : raw.receive_all())
        serials.push_back(serial_of(packet));
    EXPECT_THAT(serials, ElementsAre(1u, 2u, 3u, 4u, 5u, 6u));
}

// ----------------------------------------------------------------------------------------- Several in one packet

// A raw peer, and the bus's own peer for it.
class Together : public Send {
protected:
    Together() {
        raw.send(hello());
        peer = peer_of(raw, server);
        turn_until_idle();
        raw.receive_all();
    }

    // Queues a one-way call with one argument, which it cleans.
    void send_one_way(variant_t value) {
        request_t *r = request_create_executeFunction("a", "b", 0);
        EXPECT_TRUE(request_addParameter(r, "v", &value));
        variant_cleanup(&value);
        EXPECT_TRUE(kex_sendRequest(server, peer, r));
        request_destroy(r);
    }
    // How many messages the packets have that come in the next turn; what they are goes to `received`.
    std::vector<size_t> packets_of_a_turn() {
        kex_dispatch(server);
        std::vector<size_t> sizes;
        for (auto packet = raw.receive_packet(); packet && !packet->empty(); packet = raw.receive_packet()) {
            const std::vector<std::string> messages = messages_of(*packet);
            sizes.push_back(messages.size());
            received.insert(received.end(), messages.begin(), messages.end());
        }
        return sizes;
    }

    RawPeer raw{socket};
    peer_t *peer = nullptr;
    std::vector<std::string> received;
};

TEST_F(Together, WhatATurnHasGatheredLeavesInOnePacket) {
    for (uint32_t i = 0; i < 32; i++)
        send_one_way(u32(i));
    EXPECT_THAT(packets_of_a_turn(), ElementsAre(32));
    for (uint32_t i = 0; i < received.size(); i++) {
        const Packet wanted = Packet(kOneWayCall, i + 1).text("a").text("b").byte(1).text("v").byte(8).word(i);
        EXPECT_EQ(received[i], wanted.bytes()) << "each as if it had left alone, in their order";
    }
}

TEST_F(Together, SixtyFourMessagesAtMost) {
    for (uint32_t i = 0; i < 130; i++)
        send_one_way(u32(i));
    EXPECT_THAT(packets_of_a_turn(), ElementsAre(64, 64, 2));
}

TEST_F(Together, AsManyBytesAsAPacketMayHave) {
    for (int i = 0; i < 5; i++)
        send_one_way(text(std::string(50000, 'x').c_str()));
    EXPECT_THAT(packets_of_a_turn(), ElementsAre(2, 2, 1));
}

TEST_F(Together, SixteenDescriptorsOfSeveralMessagesAtMost) {
    for (int i = 0; i < 3; i++)
        send_one_way(list(std::vector<variant_t>(8, descriptor(STDIN_FILENO))));
    send_one_way(list(std::vector<variant_t>(64, descriptor(STDIN_FILENO))));
    send_one_way(none());
    EXPECT_THAT(packets_of_a_turn(), ElementsAre(2, 1, 2));
    std::vector<uint32_t> counts;
    for (const std::string &message : received)
        counts.push_back(descriptors_of(message));
    EXPECT_THAT(counts, ElementsAre(8u, 8u, 8u, 64u, 0u));
}

// The receiver's table is almost full: what each call brings finds room, what all of them bring does not.
TEST_F(Together, DescriptorsOfSeveralCallsFindRoomWhereThoseOfEachDo) {
    constexpr size_t kCalls = 8;
    CapturedTrace trace;
    const rlim_t low = open_descriptors() + 12; // of the reader: while it reads
    {
        const TableSize table(low);
        for (int looks = 0; looks < 40; looks++) // until the bus has looked at the table again
            request_destroy(call("Probe", "note"));
    }
    served::log.clear();
    for (size_t i = 0; i < kCalls; i++) {
        request_t *r = request_create_executeFunction("Probe", "note", 0);
        variant_t ten = list(std::vector<variant_t>(10, descriptor(STDIN_FILENO)));
        request_addParameter(r, "fds", &ten);
        variant_cleanup(&ten);
        EXPECT_TRUE(kex_sendRequest(client, to_server, r));
        request_destroy(r);
    }
    kex_dispatch(client);
    {
        const TableSize table(low);
        support::turn_until_idle({server});
    }
    // Checked only now: the sanitizers' own checks need descriptors too.
    EXPECT_EQ(served::log.size(), kCalls) << "28 at a time fit, 80 come";
    EXPECT_EQ(trace.text(), "");
}

TEST_F(Together, FourThousandAndNinetySixValuesAtMost) {
    for (int i = 0; i < 3; i++)
        send_one_way(list(std::vector<variant_t>(2047, none())));
    EXPECT_THAT(packets_of_a_turn(), ElementsAre(2, 1));
}

TEST_F(Together, SixtyFourErrorItemsAtMost) {
    served::probe = [](function_call_t *call, argument_list_t *, variant_t *) {
        for (uint32_t i = 0; i < 32; i++)
            reply_addError(request_reply(fcall_request(call)), i, "d", "i");
        fcall_destroy(call);
        return 0;
    };
    raw.send(together(std::vector<Packet>(3, support::call(1, "Probe", "run"))));
    const support::ClockStopped one_turn; // does for all of them
    EXPECT_THAT(packets_of_a_turn(), ElementsAre(2, 1));
}

TEST_F(Together, PeerUnderstandsWhatAPeerGathers) {
    for (uint32_t i = 0; i < 100; i++) {
        request_t *r = request_create_executeFunction("Probe", "note", 0);
        const variant_t value = u32(i);
        request_addParameter(r, "number", &value);
        ASSERT_TRUE(kex_sendRequest(client, to_server, r));
        request_destroy(r);
    }
    turn_until_idle();
    ASSERT_EQ(served::log.size(), 100u);
    for (size_t i = 0; i < served::log.size(); i++)
        EXPECT_EQ(served::log[i], "note " + std::to_string(i));
}

// Which of them the kernel does not like it does not say.
TEST_F(Together, ErrorThatIsNoneOfTheUsualTakesNoOtherMessageAlong) {
    CapturedTrace trace;
    for (uint32_t i = 0; i < 3; i++)
        send_one_way(u32(i));
    send_error = EIO;
    EXPECT_THAT(packets_of_a_turn(), ElementsAre(1, 1, 1)) << "one by one";
    EXPECT_EQ(trace.text(), "");
}

TEST_F(Together, DestroyedRequestsLeaveAsOneWayCallsAmongOthers) {
    request_t *kept = request_create_executeFunction("a", "kept", 0);
    request_t *gone = request_create_executeFunction("a", "gone", 0);
    ASSERT_TRUE(kex_sendRequest(server, peer, kept));
    ASSERT_TRUE(kex_sendRequest(server, peer, gone));
    request_destroy(gone);
    EXPECT_THAT(packets_of_a_turn(), ElementsAre(2));
    EXPECT_EQ(kind_of(received[0]), kCall);
    EXPECT_EQ(kind_of(received[1]), kOneWayCall);
    request_destroy(kept);
}

TEST_F(Together, HelloLeavesAlone) {
    RawPeer newcomer(socket);
    newcomer.send(hello());
    newcomer.send(support::call(1, "Probe", "note"));
    send_error = ENOBUFS; // the hello has to wait, and the reply comes behind it
    std::vector<std::string> packets;
    EXPECT_TRUE(turn_until([&] {
        if (const auto packet = newcomer.receive_packet())
            packets.push_back(*packet);
        return packets.size() == 2;
    }));
    EXPECT_EQ(messages_of(packets.at(0)).size(), 1u);
    EXPECT_EQ(kind_of(packets.at(0)), kHello);
    EXPECT_EQ(kind_of(packets.at(1)), kReply);
}

} // namespace

// SPDX-License-Identifier: MIT
// How packets leave: when, and what is said when one cannot.
#include "served_functions.h"
#include "support/bus_test.h"
#include "support/raw_peer.h"
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

}

extern "C" {

// The linker sends the bus's calls here (--wrap).
ssize_t __real_sendmsg(int fd, const msghdr *message, int flags);
ssize_t __wrap_sendmsg(int fd, const msghdr *message, int flags);

ssize_t __wrap_sendmsg(int fd, const msghdr *message, int flags) {
    if (send_error == 0)
        return __real_sendmsg(fd, message, flags);
    errno = send_error;
    send_error = 0;
    return -1;
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
    }
    EXPECT_EQ(served::log.size(), 5u);
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

} // namespace

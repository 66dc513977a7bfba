// SPDX-License-Identifier: MIT
// What happens while somebody waits: what comes is kept in order, what lies here leaves, and floods are broken off.
#include "base/faults.h"
#include "kex_tap.h"
#include "wait_fixture.h"
#include <algorithm>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// How much of what the raw peer has sent has not been read.
int unread_bytes(const RawPeer &raw) {
    int bytes = 0;
    EXPECT_EQ(ioctl(raw.fd(), SIOCOUTQ, &bytes), 0);
    return bytes;
}

TEST_F(Wait, RunsNothingAndKeepsTheOrder) {
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, [](kex_timer_t *) { served::log.push_back("timer"); });
    kex_timer_start(timer, 0);
    raw.send(note(1));
    raw.send(note(2));
    raw.send(reply());
    raw.send(note(3));
    EXPECT_TRUE(kex_waitForReply(server, request, nullptr));
    EXPECT_THAT(served::log, ElementsAre());
    EXPECT_TRUE(turn_until([] { return served::log.size() >= 4; }));
    served::log.erase(std::find(served::log.begin(), served::log.end(), "timer"));
    EXPECT_THAT(served::log, ElementsAre("note 1", "note 2", "note 3"));
    kex_timer_destroy(timer);
}

TEST_F(Wait, WhatWasSentToOthersBeforeLeavesFirst) {
    RawPeer other(socket);
    other.send(hello("other"));
    peer_t *second = nullptr;
    served::probe = [&](function_call_t *call, argument_list_t *, variant_t *) {
        second = fcall_peer(call);
        request_t *r = request_create_executeFunction("Theirs", "news", 0);
        EXPECT_TRUE(kex_sendRequest(server, second, r));
        request_destroy(r);
        EXPECT_TRUE(other.receive_all().size() == 1) << "only the hello so far";
        timeval none = kSeconds(0);
        EXPECT_FALSE(kex_waitForReply(server, request, &none));
        EXPECT_EQ(other.receive_all().size(), 1u) << "it left at the wait";
        fcall_destroy(call);
        return 0;
    };
    other.send(Packet(kOneWayCall, 1).text("Probe").text("run").byte(0));
    EXPECT_TRUE(turn_until([&] { return second != nullptr; }));
}

TEST_F(Wait, RepliesMayComeInAnyOrder) {
    request_t *second = request_create_executeFunction("Theirs", "quick", 0);
    ASSERT_TRUE(kex_sendRequest(server, plugin, second));
    kex_dispatch(server);
    uint32_t second_serial = serial_of(raw.receive_all().at(0));
    EXPECT_NE(second_serial, serial);
    raw.send(Packet(kReply, second_serial).byte(0).byte(1).byte(10).byte(1));
    EXPECT_TRUE(kex_waitForReply(server, second, nullptr));
    EXPECT_THAT(lines_of(second), ElementsAre("value true"));
    EXPECT_EQ(request_reply(request), nullptr);
    raw.send(Packet(kReply, second_serial).byte(0).byte(1).byte(10).byte(0)); // answered already: passed over
    raw.send(reply());
    EXPECT_TRUE(kex_waitForReply(server, request, nullptr));
    EXPECT_THAT(lines_of(second), ElementsAre("value true"));
    request_destroy(second);
}

TEST_F(Wait, PeerThatSendsTooMuchMeanwhileIsBrokenOff) {
    std::thread flood([&] {
        for (uint32_t i = 0; i < 3000; i++) {
            while (!raw.send(note(i))) {
                if (errno != EAGAIN)
                    return;
                std::this_thread::yield();
            }
        }
    });
    EXPECT_FALSE(kex_waitForReply(server, request, nullptr));
    flood.join();
    EXPECT_THAT(lines_of(request), ElementsAre(HasSubstr("it sent too much while its reply was waited for")));
    turn_until_idle();
    EXPECT_EQ(served::log.size(), 1024u) << "what it had sent within the limit still runs";
}

TEST_F(Wait, PeerThatSendsTooManyDescriptorsMeanwhileIsBrokenOff) {
    const Packet with_many = Packet(kOneWayCall, 10).text("Probe").text("note").byte(1).text("fds").descriptor_list(64);
    for (int i = 0; i < 2; i++)
        ASSERT_TRUE(raw.send(with_many, std::vector<int>(64, STDIN_FILENO)));
    EXPECT_FALSE(kex_waitForReply(server, request, nullptr));
    EXPECT_THAT(lines_of(request), ElementsAre(HasSubstr("it sent too much while its reply was waited for")));
    turn_until_idle();
    EXPECT_EQ(served::log.size(), 2u) << "what it had sent until the limit of 128 was reached still runs";
}

TEST_F(Wait, FloodDuringAWaitForSomebodyElseIsLeftAlone) {
    RawPeer other(socket);
    other.send(hello("other"));
    size_t sent = 0;
    while (other.send(note(1)))
        sent++;
    raw.send(reply());
    EXPECT_TRUE(kex_waitForReply(server, request, nullptr));
    EXPECT_TRUE(turn_until([&] { return served::log.size() == sent; }));
}

TEST_F(Wait, PeerThatSendsWithoutEndCannotKeepItFromItsTime) {
    RunningClock clock;
    kex_setClock(server, RunningClock::read, &clock);
    size_t lying = 0;
    while (raw.send(Packet(kWaiting, 999)))
        lying++;
    ASSERT_GT(lying, 140u) << "the socket holds more than the wait reads between two looks at its time";
    timeval limit = {1, 0};
    EXPECT_FALSE(kex_waitForReply(server, request, &limit));
    EXPECT_GT(unread_bytes(raw), 0) << "the time was over before all was read";
    kex_setClock(server, nullptr, nullptr);
}

// More lies here for it than its socket takes: the rest leaves while the wait goes on.
TEST_F(Wait, WhatLiesHereForThePeerLeavesMeanwhile) {
    std::vector<request_t *> requests;
    const variant_t large = bytes(std::string(60 * 1024, 'x'));
    for (int i = 0; i < 16; i++) {
        requests.push_back(request_create_executeFunction("Theirs", "large", 0));
        request_addParameter(requests.back(), "data", &large);
        ASSERT_TRUE(kex_sendRequest(server, plugin, requests.back()));
    }
    variant_cleanup(const_cast<variant_t *>(&large));
    std::thread reader([&] {
        usleep(50000); // until the wait has nothing to do but to wait for room
        for (size_t read = 0; read < requests.size();) {
            const auto packet = raw.receive();
            if (!packet)
                std::this_thread::yield();
            else if (kind_of(*packet) == kCall && ++read == requests.size())
                raw.send(Packet(kReply, serial_of(*packet)).byte(0).byte(0));
        }
    });
    const timeval limit = kSeconds(20);
    EXPECT_TRUE(kex_waitForReply(server, requests.back(), &limit));
    reader.join();
    for (request_t *r : requests)
        request_destroy(r);
}

// The kernel had no memory for it: it is tried again while the wait goes on, whatever else comes.
TEST_F(Wait, WhatTheKernelDidNotTakeLeavesMeanwhile) {
    request_t *second = request_create_executeFunction("Theirs", "second", 0);
    ASSERT_TRUE(kex_sendRequest(server, plugin, second));
    bus::faults_read("send:1");
    const timeval at_once = {0, 0};
    EXPECT_FALSE(kex_waitForReply(server, second, &at_once)) << "its time is over before that of the second attempt";
    EXPECT_TRUE(raw.receive_all().empty());
    bus::faults_read("send:1");
    turn_until_idle();
    std::thread reader([&] {
        for (uint32_t i = 0; i < 40; i++) {
            raw.send(note(i)); // wakes the wait before it is time
            usleep(300);
        }
        for (;;) {
            const auto packet = raw.receive();
            if (packet && kind_of(*packet) == kCall) {
                raw.send(Packet(kReply, serial_of(*packet)).byte(0).byte(0));
                return;
            }
            std::this_thread::yield();
        }
    });
    const timeval limit = kSeconds(20);
    EXPECT_TRUE(kex_waitForReply(server, second, &limit));
    reader.join();
    bus::faults_read(nullptr);
    request_destroy(second);
}

// Read by a wait for another one, and the bus ends before its handler had its turn.
TEST_F(Wait, ReplyWhoseHandlerHasNotRunGoesWithItsBus) {
    request_t *other = request_create_executeFunction("Theirs", "other", 0);
    static int done;
    done = 0;
    request_setDoneHandler(other, [](request_t *r) {
        done++;
        request_destroy(r);
    });
    ASSERT_TRUE(kex_sendRequest(server, plugin, other));
    turn_until_idle();
    raw.send(Packet(kReply, serial + 1).byte(0).byte(1).byte(0).text("kept"));
    raw.send(reply());
    ASSERT_TRUE(kex_waitForReply(server, request, nullptr));
    EXPECT_EQ(done, 0);
    request_destroy(request);
    request = nullptr;
    kex_destroy(server);
    server = nullptr;
    EXPECT_EQ(done, 1);
}

// Found out while the wait sends; the end of the tap is read later.
TEST_F(Wait, TapThatHasGoneGetsNoMoreCopies) {
    kex_tap_t *tap = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
    ASSERT_NE(tap, nullptr);
    turn_until_idle();
    kex_tap_close(tap);
    request_t *next = request_create_executeFunction("Theirs", "next", 0);
    ASSERT_TRUE(kex_sendRequest(server, plugin, next));
    raw.send(Packet(kReply, serial + 1).byte(0).byte(0));
    raw.send(reply());
    EXPECT_TRUE(kex_waitForReply(server, next, nullptr));
    EXPECT_TRUE(kex_waitForReply(server, request, nullptr));
    request_destroy(next);
}

} // namespace

// SPDX-License-Identifier: MIT
// A wait ends with its reply, at its time, when it is stopped and when its peer goes; and it sleeps until then.
#include "base/faults.h"
#include "wait_fixture.h"
#include <algorithm>
#include <csignal>
#include <limits>
#include <poll.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;

namespace {

int polls; // of this program's bus

}

extern "C" {

// The linker sends the bus's calls here (--wrap).
int __real_poll(pollfd *descriptors, nfds_t count, int timeout);
int __wrap_poll(pollfd *descriptors, nfds_t count, int timeout);

int __wrap_poll(pollfd *descriptors, nfds_t count, int timeout) {
    polls++;
    return __real_poll(descriptors, count, timeout);
}

} // extern "C"

namespace {

TEST_F(Wait, EndsWithTheReply) {
    raw.send(reply());
    EXPECT_TRUE(kex_waitForReply(server, request, nullptr));
    EXPECT_TRUE(kex_waitForReply(server, request, nullptr)) << "it is there";
    EXPECT_NE(request_reply(request), nullptr);
}

TEST_F(Wait, WhoHasWaitedOutsideATurnHearsItsPeerAfterwards) {
    kex_dispatch(server);
    raw.send(reply());
    EXPECT_TRUE(kex_waitForReply(server, request, nullptr));
    pollfd announced = {kex_pollDescriptor(server), POLLIN, 0};
    ASSERT_EQ(poll(&announced, 1, 0), 0) << "else nothing is tested";
    raw.send(note(1));
    EXPECT_EQ(poll(&announced, 1, 1000), 1);
    turn_until_idle();
    EXPECT_THAT(served::log, ElementsAre("note 1"));
}

TEST_F(Wait, FailsAtOnceWhenThePeerCloses) {
    raw.send(note(1));
    raw.close();
    EXPECT_FALSE(kex_waitForReply(server, request, nullptr));
    EXPECT_THAT(lines_of(request), ElementsAre("error 65541 Peer closed: the peer is gone"));
    EXPECT_TRUE(turn_until([] { return !served::log.empty(); })) << "the call from before is not lost";
}

// The kernel tells of the reset in front of the end.
TEST_F(Wait, FailsAtOnceWhenThePeerClosesWithoutReading) {
    request_t *unread = request_create_executeFunction("Theirs", "unread", 0);
    ASSERT_TRUE(kex_sendRequest(server, plugin, unread));
    kex_dispatch(server);
    raw.close();
    EXPECT_FALSE(kex_waitForReply(server, request, nullptr));
    EXPECT_THAT(lines_of(request), ElementsAre("error 65541 Peer closed: the peer is gone"));
    request_destroy(unread);
}

TEST_F(Wait, FailsAtOnceWhenItsReadFails) {
    CapturedTrace trace;
    bus::faults_read("receive:1");
    EXPECT_FALSE(kex_waitForReply(server, request, nullptr));
    bus::faults_read(nullptr);
    EXPECT_THAT(lines_of(request), ElementsAre("error 65541 Peer closed: Cannot allocate memory"));
}

TEST_F(Wait, FailsAtOnceWhenThePeerSendsRubbish) {
    raw.send("rubbish");
    EXPECT_FALSE(kex_waitForReply(server, request, nullptr));
    EXPECT_EQ(raw.refusal(), "this is no packet of the bus");
}

TEST_F(Wait, EndsAtItsTimeLimit) {
    timeval limit = {0, 20000};
    EXPECT_FALSE(kex_waitForReply(server, request, &limit));
    EXPECT_EQ(request_reply(request), nullptr);
    timeval none = kSeconds(0);
    EXPECT_FALSE(kex_waitForReply(server, request, &none));
    raw.send(reply());
    EXPECT_TRUE(kex_waitForReply(server, request, &none)) << "what is there is read even so";
}

TEST_F(Wait, OfARequestThatWasNeverSentFails) {
    request_t *unsent = request_create_executeFunction("a", "b", 0);
    EXPECT_FALSE(kex_waitForReply(server, unsent, nullptr));
    request_destroy(unsent);
}

TEST_F(Wait, StopMakesItFail) {
    kex_stop(server);
    EXPECT_FALSE(kex_waitForReply(server, request, nullptr));
}

kex_t *to_stop;

// Whether the system call that is under way would be begun again behind the handler or not.
TEST_F(Wait, StopFromASignalHandlerMakesARunningOneFail) {
    for (int flags : {0, SA_RESTART}) {
        kex_t *bus = kex_create("waiting");
        peer_t *peer = connect(bus);
        request_t *r = request_create_executeFunction("Theirs", "slow", 0);
        ASSERT_TRUE(kex_sendRequest(bus, peer, r));
        to_stop = bus;
        struct sigaction action = {};
        action.sa_handler = [](int) { kex_stop(to_stop); };
        action.sa_flags = flags;
        struct sigaction before;
        sigaction(SIGALRM, &action, &before);
        itimerval soon = {{0, 0}, {0, 50000}};
        setitimer(ITIMER_REAL, &soon, nullptr);
        EXPECT_FALSE(kex_waitForReply(bus, r, nullptr));
        sigaction(SIGALRM, &before, nullptr);
        request_destroy(r);
        kex_destroy(bus);
        turn_until_idle();
    }
}

TEST_F(Wait, StopFromAnotherThreadMakesARunningOneFail) {
    std::thread other([&] {
        usleep(50000);
        kex_stop(server);
    });
    EXPECT_FALSE(kex_waitForReply(server, request, nullptr));
    other.join();
}

// Nothing waits to be sent, and the bus has the kernel's clock: the receive itself sleeps.
TEST_F(Wait, AsksForItsReplyByOneSystemCall) {
    std::thread other([&] {
        usleep(20000);
        raw.send(reply());
    });
    polls = 0;
    EXPECT_TRUE(kex_waitForReply(server, request, nullptr));
    EXPECT_EQ(polls, 0);
    other.join();
}

TEST_F(Wait, SleepsInAPollWhenItIsShortOrByAnotherClock) {
    const timeval soon = {0, 90000};
    polls = 0;
    EXPECT_FALSE(kex_waitForReply(server, request, &soon));
    EXPECT_GE(polls, 1);
    static uint64_t now;
    now = 1000000000;
    kex_setClock(
        server, [](void *) { return now += 300000000; }, nullptr);
    const timeval second = {1, 0};
    polls = 0;
    EXPECT_FALSE(kex_waitForReply(server, request, &second));
    EXPECT_GE(polls, 1);
}

// What a packet brings must find room: that is looked after before a read.
TEST_F(Wait, SleepsInAPollWhereAPacketMayBringMoreThanFits) {
    const TableSize low(open_descriptors() + 150);
    kex_t *own = kex_create("own"); // has not seen a larger table
    peer_t *peer = connect(own);
    support::turn_until_idle({own, server});
    request_t *r = request_create_executeFunction("Probe", "note", 0);
    ASSERT_TRUE(kex_sendRequest(own, peer, r));
    kex_dispatch(own);
    support::turn_until_idle({server});
    polls = 0;
    EXPECT_TRUE(kex_waitForReply(own, r, nullptr));
    EXPECT_GE(polls, 1);
    request_destroy(r);
    kex_destroy(own);
    turn_until_idle();
}

TEST_F(Wait, ReplyToARequestThatHasNotLeftIsNone) {
    request_t *next = request_create_executeFunction("Theirs", "later", 0);
    ASSERT_TRUE(kex_sendRequest(server, plugin, next));
    raw.send(Packet(kReply, serial + 1).byte(0).byte(1).byte(8).word(1)); // guessed
    kex_dispatch(server);                                                 // reads, then sends
    EXPECT_EQ(request_reply(next), nullptr);
    const auto sent = raw.receive_all();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(serial_of(sent[0]), serial + 1);
    raw.send(Packet(kReply, serial + 1).byte(0).byte(1).byte(8).word(2));
    EXPECT_TRUE(kex_waitForReply(server, next, nullptr));
    EXPECT_THAT(lines_of(next), ElementsAre("value u32 2"));
    request_destroy(next);
}

TEST_F(Wait, TimesOfAnySizeAreTaken) {
    for (const timeval limit : {timeval{-1, 0}, timeval{0, 0}, timeval{0, -1}})
        EXPECT_FALSE(kex_waitForReply(server, request, &limit));
    raw.send(reply());
    const timeval for_ever = {std::numeric_limits<time_t>::max(), 999999};
    EXPECT_TRUE(kex_waitForReply(server, request, &for_ever));
}

} // namespace

// SPDX-License-Identifier: MIT
// kex_waitForReply: what it lets happen, and how it shows.
#include "base/faults.h"
#include "kex_tap.h"
#include "served_functions.h"
#include "support/bus_test.h"
#include "support/raw_peer.h"

#include <algorithm>
#include <csignal>
#include <limits>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

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

// A bus connected to a raw peer that has accepted it, so that the test plays the peer message by message.
class Wait : public TwoBuses {
protected:
    Wait() {
        served::reset();
        served::declare(server);
        raw.send(hello("plugin"));
        served::probe = [&](function_call_t *call, argument_list_t *, variant_t *) {
            plugin = fcall_peer(call);
            fcall_destroy(call);
            return 0;
        };
        raw.send(Packet(kOneWayCall, 1).text("Probe").text("run").byte(0));
        EXPECT_TRUE(turn_until([&] { return plugin != nullptr; }));
        raw.receive_all();
        request = request_create_executeFunction("Theirs", "slow", 0);
        EXPECT_TRUE(kex_sendRequest(server, plugin, request));
        kex_dispatch(server);
        auto sent = raw.receive_all();
        EXPECT_EQ(sent.size(), 1u);
        serial = serial_of(sent.at(0));
    }
    ~Wait() override {
        request_destroy(request);
        served::reset();
    }

    Packet reply() const { return Packet(kReply, serial).byte(0).byte(0); }
    Packet note(uint32_t number) const {
        return Packet(kOneWayCall, 10 + number).text("Probe").text("note").byte(1).text("number").byte(8).word(number);
    }

    RawPeer raw{socket};
    peer_t *plugin = nullptr;
    request_t *request = nullptr;
    uint32_t serial = 0;
};

// How much of what the raw peer has sent has not been read.
int unread_bytes(const RawPeer &raw) {
    int bytes = 0;
    EXPECT_EQ(ioctl(raw.fd(), SIOCOUTQ, &bytes), 0);
    return bytes;
}

// A clock that moves by itself: each look at it is some time later.
struct RunningClock {
    uint64_t now = 1000000000;
    uint64_t step = 500000000;
    static uint64_t read(void *self) {
        auto *clock = static_cast<RunningClock *>(self);
        return clock->now += clock->step;
    }
};

constexpr timeval kSeconds(int seconds) {
    return {seconds, 0};
}

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

TEST_F(Wait, ShowsAfterTwoSecondsAndEveryTen) {
    CapturedTrace trace;
    RunningClock clock;
    kex_setClock(server, RunningClock::read, &clock);
    timeval limit = kSeconds(25);
    EXPECT_FALSE(kex_waitForReply(server, request, &limit));
    kex_setClock(server, nullptr, nullptr);
    EXPECT_THAT(trace.text(), HasSubstr("KEX     - [!]waiting for 'plugin' (process " + std::to_string(getpid()) +
                                        ") to answer 'slow' of 'Theirs' for 2 s\n"));
    EXPECT_THAT(trace.text(), HasSubstr("for 12 s\n"));
    EXPECT_THAT(trace.text(), HasSubstr("for 22 s\n"));
    size_t lines = 0;
    for (char c : trace.text())
        lines += c == '\n';
    EXPECT_EQ(lines, 3u) << trace.text();
}

TEST_F(Wait, TellsTheOtherSide) {
    CapturedTrace trace;
    RunningClock clock;
    kex_setClock(server, RunningClock::read, &clock);
    timeval limit = kSeconds(5);
    EXPECT_FALSE(kex_waitForReply(server, request, &limit));
    kex_setClock(server, nullptr, nullptr);
    auto packets = raw.receive_all();
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(kind_of(packets[0]), kWaiting);
    EXPECT_EQ(serial_of(packets[0]), serial);
}

TEST_F(Wait, TwoThatWaitForEachOtherAreTraced) {
    CapturedTrace trace;
    raw.send(support::call(77, "Probe", "run"));
    raw.send(Packet(kWaiting, 77));
    raw.send(reply());
    EXPECT_TRUE(kex_waitForReply(server, request, nullptr));
    EXPECT_THAT(trace.text(), HasSubstr("wait for each other: we for 'slow' of 'Theirs', they for 'run' of 'Probe'"));
}

TEST_F(Wait, NoticeThatCameBeforeTheWaitIsTracedWhenTheWaitBegins) {
    CapturedTrace trace;
    served::probe = [&](function_call_t *call, argument_list_t *, variant_t *) {
        // The caller has long said that it waits for us; now we wait for it.
        raw.send(Packet(kWaiting, 77));
        request_t *first = request_create_executeFunction("Theirs", "first", 0);
        EXPECT_TRUE(kex_sendRequest(server, plugin, first));
        timeval none = kSeconds(0);
        kex_waitForReply(server, first, &none);
        kex_waitForReply(server, request, &none);
        request_destroy(first);
        fcall_destroy(call);
        return 0;
    };
    raw.send(support::call(77, "Probe", "run"));
    turn_until_idle();
    EXPECT_THAT(trace.text(), HasSubstr("we for 'first' of 'Theirs', they for 'run' of 'Probe'"));
    EXPECT_THAT(trace.text(), HasSubstr("we for 'slow' of 'Theirs', they for 'run' of 'Probe'"));
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

// Two of its calls lie here; it waits for the later one, while the earlier one waits for it.
TEST_F(Wait, TheCallThatThePeerWaitsForIsNamed) {
    served::probe = [&](function_call_t *call, argument_list_t *, variant_t *) {
        const timeval limit = {0, 1};
        kex_waitForReply(server, request, &limit);
        fcall_destroy(call);
        return 0;
    };
    CapturedTrace trace;
    raw.send(Packet(kCall, 20).text("Probe").text("run").byte(0));
    raw.send(Packet(kCall, 21).text("Probe").text("echo").byte(0));
    raw.send(Packet(kCall, 22).text("Probe").text("note").byte(0));
    raw.send(Packet(kWaiting, 22));
    turn_until_idle();
    EXPECT_THAT(trace.text(), HasSubstr("wait for each other: we for 'slow' of 'Theirs', they for 'note' of 'Probe'"));
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

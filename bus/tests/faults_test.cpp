// SPDX-License-Identifier: MIT
// Faults on request: what KEX_FAULTS asks for happens where it was asked for, and nothing else does.
#include "base/faults.h"
#include "base/memory.h"
#include "base/trace.h"
#include "kex_tap.h"
#include "support/bus_test.h"
#include "support/raw_peer.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <poll.h>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class Faults : public DescriptorTest {
protected:
    Faults() {
        unsetenv("ZIL_TRACE_LEVEL");
        bus::trace_configure();
    }
    ~Faults() override {
        bus::faults_read(nullptr);
        unsetenv("KEX_FAULTS");
    }
    // The bus that comes next reads it.
    static void plan(const char *text) { setenv("KEX_FAULTS", text, 1); }
    // Which of the first hundred of a kind fail.
    static std::vector<int> struck(bus::Fault fault) {
        std::vector<int> found;
        for (int n = 1; n <= 100; n++) {
            if (bus::fault_is_due(fault))
                found.push_back(n);
        }
        return found;
    }

    ScratchDirectory scratch;
    std::string socket = scratch.path("bus");
};

TEST_F(Faults, NothingFailsWithoutAPlan) {
    CapturedTrace trace;
    for (const char *text : {static_cast<const char *>(nullptr), ""}) {
        bus::faults_read(text);
        EXPECT_FALSE(bus::faults_on);
        EXPECT_TRUE(struck(bus::Fault::memory).empty());
    }
    EXPECT_EQ(trace.text(), "");
}

TEST_F(Faults, TheNthOfAKindFailsAndNoOther) {
    bus::faults_read("send:3,send:90,memory:1");
    EXPECT_THAT(struck(bus::Fault::send), ElementsAre(3, 90));
    EXPECT_THAT(struck(bus::Fault::memory), ElementsAre(1));
    EXPECT_TRUE(struck(bus::Fault::receive).empty());
}

TEST_F(Faults, ASeedReplaysWhatChanceDid) {
    bus::faults_read("receive%20,seed=7");
    const std::vector<int> first = struck(bus::Fault::receive);
    EXPECT_GT(first.size(), 5u);
    EXPECT_LT(first.size(), 45u);
    bus::faults_read("seed=7,receive%20");
    EXPECT_EQ(struck(bus::Fault::receive), first);
    bus::faults_read("receive%20,seed=8");
    EXPECT_NE(struck(bus::Fault::receive), first);
    bus::faults_read("receive%100");
    EXPECT_EQ(struck(bus::Fault::receive).size(), 100u);
}

TEST_F(Faults, ThePlanAndEachFaultAreTraced) {
    CapturedTrace trace;
    bus::faults_read("accept:2,open%50");
    struck(bus::Fault::accept);
    EXPECT_THAT(trace.text(), HasSubstr("faults on request: KEX_FAULTS=accept:2,open%50 with seed=1"));
    EXPECT_THAT(trace.text(), HasSubstr("fault on request: accept:2\n"));
}

TEST_F(Faults, EachSaysWhatAKernelWouldSay) {
    const std::map<std::string, int> errors = {
        {"memory", ENOMEM},  {"send", ENOBUFS},    {"receive", ENOMEM}, {"accept", ENFILE}, {"socket", EMFILE},
        {"connect", EAGAIN}, {"bind", EADDRINUSE}, {"listen", ENOBUFS}, {"epoll", ENOSPC},  {"timer", EMFILE},
        {"dup", EMFILE},     {"lock", ENOLCK},     {"open", EMFILE}};
    for (const auto &[name, error] : errors) {
        SCOPED_TRACE(name);
        bus::faults_read((name + ":1").c_str());
        int hits = 0;
        for (int fault = 0; fault < static_cast<int>(bus::Fault::kinds); fault++) {
            errno = 0;
            if (!bus::fault_is_due(static_cast<bus::Fault>(fault)))
                continue;
            hits++;
            EXPECT_EQ(errno, error) << strerror(errno);
        }
        EXPECT_EQ(hits, 1);
    }
}

TEST_F(Faults, APlanThatDoesNotReadSoIsNone) {
    for (const char *text : {"memory",
                             "memory:",
                             "memory:0",
                             "memory:x",
                             "memory:-1",
                             "memory:1x",
                             "memory:1,",
                             ",memory:1",
                             "memory:99999999999",
                             "send%",
                             "send%0",
                             "send%101",
                             "disk:1",
                             "delay:1",
                             "delay:1=",
                             "delay:1=0",
                             "delay:1=60001",
                             "delay%5",
                             "seed=1",
                             "seed:1,memory:1",
                             "memory:1;send:1",
                             " memory:1",
                             "memory:1,send:1,send:1,send:1,send:1,send:1,send:1,send:1,send:1,"
                             "send:1,send:1,send:1,send:1,send:1,send:1,send:1,send:1"}) {
        SCOPED_TRACE(text);
        CapturedTrace trace;
        bus::faults_read(text);
        EXPECT_FALSE(bus::faults_on);
        EXPECT_THAT(trace.text(), HasSubstr("KEX_FAULTS is no list of at most 16 faults"));
        EXPECT_THAT(trace.text(), HasSubstr("nothing fails"));
    }
}

// ----------------------------------------------------------------------------------------- On a bus

TEST_F(Faults, ABusThatCannotBeMadeIsNone) {
    for (const char *text : {"memory:1", "epoll:1", "epoll:2", "epoll:3", "epoll:4", "timer:1", "dup:1"}) {
        SCOPED_TRACE(text);
        // What a bus needs is counted from the moment it reads its plan, when it has its own memory.
        plan(text);
        EXPECT_EQ(kex_create("bus"), nullptr);
    }
}

TEST_F(Faults, AListenerSaysWhichStepFailed) {
    const std::map<std::string, std::string> sentences = {
        {"open:1", "its lock file cannot be opened: Too many open files"},
        {"lock:1", "No locks available"},
        {"socket:1", "Too many open files"},
        {"bind:1", "Address already in use"},
        {"listen:1", "No buffer space available"},
        {"epoll:5", ""}}; // its own four descriptors come first
    for (const auto &[text, sentence] : sentences) {
        SCOPED_TRACE(text);
        CapturedTrace trace;
        plan(text.c_str());
        kex_t *bus = kex_create("bus");
        EXPECT_EQ(connection_listenOnIPC(kex_connection(bus), socket.c_str()), nullptr);
        if (!sentence.empty()) {
            EXPECT_THAT(trace.text(), HasSubstr("cannot listen on '" + socket + "': " + sentence));
        }
        EXPECT_NE(connection_listenOnIPC(kex_connection(bus), socket.c_str()), nullptr) << "the second attempt works";
        kex_destroy(bus);
    }
}

// The loop turns without its timer: whoever waits for one would wait for ever.
TEST_F(Faults, ATimerThatTheKernelDoesNotTakeFiresAllTheSame) {
    kex_t *bus = kex_create("bus");
    kex_timer_t *timer = kex_timer_create();
    static bool fired;
    fired = false;
    kex_timer_setHandler(timer, [](kex_timer_t *) { fired = true; });
    bus::faults_read("timer:1,timer:2,timer:3");
    kex_timer_start(timer, 20);
    pollfd ready = {kex_pollDescriptor(bus), POLLIN, 0};
    while (!fired && poll(&ready, 1, 5000) == 1)
        kex_dispatch(bus);
    EXPECT_TRUE(fired) << "nothing woke the host within 5 s";
    kex_destroy(bus);
}

// Server without faults, then a client with them.
class FaultsBetween : public Faults {
protected:
    void begin(const char *text) {
        server = kex_create("server");
        connection_listenOnIPC(kex_connection(server), socket.c_str());
        plan(text);
        client = kex_create("client");
        peer = kex_client_connect(client, uri_of(socket).c_str());
        kex_onPeerClosed(server, count, &server_closed);
        kex_onPeerClosed(client, count, &client_closed);
    }
    ~FaultsBetween() override {
        kex_destroy(client);
        kex_destroy(server);
    }
    static void count(kex_t *, peer_t *, void *counter) { ++*static_cast<int *>(counter); }
    // Whether the built-in call is answered.
    bool lists() {
        request_t *r = request_create_executeFunction(KEX_BUILTIN_PATH, KEX_BUILTIN_LIST, 0);
        const bool sent = kex_sendRequest(client, peer, r) != 0;
        for (int i = 0; sent && request_reply(r) == nullptr && i < 1000; i++) {
            kex_dispatch(client);
            kex_dispatch(server);
            usleep(1000);
        }
        const std::vector<std::string> lines = lines_of(r);
        const bool answered = sent && !lines.empty() && lines[0].find("value") == 0;
        request_destroy(r);
        turn_until_idle({server, client});
        return answered;
    }

    kex_t *server = nullptr;
    kex_t *client = nullptr;
    peer_t *peer = nullptr;
    int server_closed = 0;
    int client_closed = 0;
};

TEST_F(FaultsBetween, ARefusedSendIsTheOnlyOne) {
    begin("refuse:2");
    EXPECT_TRUE(lists());
    EXPECT_FALSE(lists());
    EXPECT_TRUE(lists());
    EXPECT_EQ(client_closed, 0);
}

TEST_F(FaultsBetween, AConnectionClosesAtItsMessage) {
    begin("");
    EXPECT_TRUE(lists());
    bus::faults_read("close:3"); // call, reply, call
    EXPECT_TRUE(lists());
    EXPECT_FALSE(lists());
    EXPECT_EQ(client_closed, 1);
    EXPECT_EQ(server_closed, 1);
    peer = kex_client_connect(client, uri_of(socket).c_str());
    EXPECT_TRUE(lists());
}

TEST_F(FaultsBetween, AMessageIsDelayedAndArrives) {
    begin("");
    EXPECT_TRUE(lists());
    bus::faults_read("delay:1=300");
    timespec before;
    timespec after;
    clock_gettime(CLOCK_MONOTONIC, &before);
    EXPECT_TRUE(lists());
    clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_GE((after.tv_sec - before.tv_sec) * 1000 + (after.tv_nsec - before.tv_nsec) / 1000000, 299);
}

TEST_F(FaultsBetween, ASendThatFailsIsTriedAgain) {
    begin("send:1,send:2");
    EXPECT_TRUE(lists());
    EXPECT_EQ(client_closed, 0);
}

TEST_F(FaultsBetween, ASendOfSeveralThatFailsIsTriedAgain) {
    begin("");
    EXPECT_TRUE(lists());
    CapturedTrace trace;
    bus::faults_read("send:1");
    request_t *requests[2];
    for (request_t *&r : requests) {
        r = request_create_executeFunction(KEX_BUILTIN_PATH, KEX_BUILTIN_LIST, 0);
        ASSERT_TRUE(kex_sendRequest(client, peer, r));
    }
    for (request_t *r : requests) {
        EXPECT_TRUE(turn_until({server, client}, [&] { return request_reply(r) != nullptr; }));
        EXPECT_THAT(lines_of(r), ElementsAre(HasSubstr("value list")));
        request_destroy(r);
    }
    EXPECT_THAT(trace.text(), HasSubstr("fault on request: send:1"));
    EXPECT_EQ(client_closed, 0);
}

// It is not tried at each request meanwhile, however much has come together.
TEST_F(FaultsBetween, MuchThatWaitsForASecondAttemptIsSentThen) {
    begin("");
    EXPECT_TRUE(lists());
    CapturedTrace trace;
    bus::faults_read("send:1");
    std::vector<request_t *> requests;
    const variant_t large = bytes(std::string(40 * 1024, 'x'));
    for (int i = 0; i < 4; i++) {
        requests.push_back(request_create_executeFunction("a", "b", 0));
        request_addParameter(requests.back(), "data", &large);
        ASSERT_TRUE(kex_sendRequest(client, peer, requests.back()));
        kex_dispatch(client);
    }
    variant_cleanup(const_cast<variant_t *>(&large));
    EXPECT_TRUE(turn_until({server, client}, [&] { return request_reply(requests.back()) != nullptr; }));
    for (request_t *r : requests)
        request_destroy(r);
    EXPECT_EQ(client_closed, 0);
}

TEST_F(FaultsBetween, ATapsCopyIsSentAtTheSecondAttempt) {
    begin("");
    EXPECT_TRUE(lists());
    kex_tap_t *tap = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
    turn_until_idle({server, client});
    kex_tap_record_t record;
    while (kex_tap_next(tap, &record) == 1)
        ;
    RawPeer raw(socket);
    raw.send(hello("raw"));
    turn_until_idle({server, client});
    while (kex_tap_next(tap, &record) == 1)
        ;
    bus::faults_read("send:1");
    raw.send(Packet(kWaiting, 1));
    kex_dispatch(server);
    EXPECT_EQ(kex_tap_next(tap, &record), 0);
    raw.send(Packet(kWaiting, 2));
    kex_dispatch(server); // the time of the second attempt has not come
    for (uint32_t serial : {1u, 2u}) {
        EXPECT_TRUE(turn_until({server, client}, [&] { return kex_tap_next(tap, &record) == 1; }));
        EXPECT_EQ(record.kind, KEX_TAP_WAITING);
        EXPECT_EQ(record.serial, serial);
    }
    kex_tap_close(tap);
}

// Sooner than a silent one has to go.
TEST_F(FaultsBetween, WhoCannotBeTakenInNowIsTakenInSoon) {
    begin("");
    RawPeer silent(socket);
    kex_dispatch(server);
    RawPeer newcomer(socket);
    bus::faults_read("accept:1,accept:2");
    kex_dispatch(server);
    bus::faults_read(nullptr);
    EXPECT_FALSE(newcomer.receive().has_value());
    EXPECT_TRUE(turn_until({server}, [&] { return newcomer.receive().has_value(); }));
}

// Each of them at its own time, by a clock that the test moves.
TEST_F(FaultsBetween, WhatIsDueAtATimeIsDoneThen) {
    begin("");
    EXPECT_TRUE(lists());
    static uint64_t now;
    now = 1000000000;
    kex_setClock(
        server, [](void *) { return now; }, nullptr);
    constexpr uint64_t kMillisecond = 1000000;
    CapturedTrace trace;
    RawPeer silent(socket);
    RawPeer other(socket);
    kex_dispatch(server);
    silent.receive_all();
    other.receive_all();
    now += 1995 * kMillisecond; // 5 ms before the silent ones have to go
    RawPeer late(socket);
    kex_dispatch(server);
    late.receive_all();
    bus::faults_read("send:1,accept:1,accept:2"); // tried again in 10 ms
    request_t *r = request_create_executeFunction(KEX_BUILTIN_PATH, KEX_BUILTIN_LIST, 0);
    ASSERT_TRUE(kex_sendRequest(client, peer, r));
    bus::faults_read(nullptr);
    kex_dispatch(client);
    bus::faults_read("send:1,accept:1,accept:2");
    const RawPeer newcomer(socket);
    kex_dispatch(server);
    bus::faults_read(nullptr);
    EXPECT_EQ(request_reply(r), nullptr);
    now += 6 * kMillisecond;
    other.close(); // its end and its time come in the same turn
    kex_dispatch(server);
    EXPECT_EQ(silent.refusal(), "no hello came within 2 s");
    EXPECT_EQ(late.refusal(), "");
    kex_dispatch(client);
    EXPECT_EQ(request_reply(r), nullptr) << "10 ms are not over";
    now += 5 * kMillisecond;
    turn_until_idle({server, client});
    EXPECT_THAT(lines_of(r), ElementsAre(HasSubstr("value list")));
    request_destroy(r);
    kex_setClock(server, nullptr, nullptr);
}

TEST_F(FaultsBetween, AReadThatFailsEndsTheConnection) {
    begin("");
    EXPECT_TRUE(lists());
    bus::faults_read("receive:1");
    EXPECT_FALSE(lists());
    EXPECT_EQ(client_closed, 1);
    EXPECT_EQ(server_closed, 1);
}

TEST_F(FaultsBetween, LostMemoryEndsTheConnection) {
    begin("");
    EXPECT_TRUE(lists());
    bus::faults_read("memory:1");
    EXPECT_FALSE(lists());
    EXPECT_EQ(client_closed, 1);
    EXPECT_EQ(server_closed, 1);
}

TEST_F(FaultsBetween, NoNewConnectionWithoutDescriptors) {
    begin("");
    for (const char *text : {"socket:1", "connect:1", "epoll:1"}) {
        SCOPED_TRACE(text);
        bus::faults_read(text);
        EXPECT_EQ(kex_client_connect(client, uri_of(socket).c_str()), nullptr);
    }
    EXPECT_TRUE(lists());
}

TEST_F(FaultsBetween, WhoCannotBeAcceptedIsToldAndMayComeAgain) {
    begin("accept:1");
    EXPECT_FALSE(lists());
    EXPECT_EQ(client_closed, 1);
    peer = kex_client_connect(client, uri_of(socket).c_str());
    EXPECT_TRUE(lists());
}

TEST_F(Faults, EachWayOfTakingMemoryFails) {
    const std::vector<std::function<void *()>> ways = {
        [] { return bus::memory_take(1); }, [] { return bus::memory_take_zeroed(1, 1); },
        [] { return bus::memory_grow(nullptr, 1, 1); }, [] { return static_cast<void *>(bus::memory_take_text("x")); },
        [] { return static_cast<void *>(bus::memory_take_text("x", 1)); }};
    for (const auto &way : ways) {
        bus::faults_read("memory:1");
        const uint32_t failures = bus::memory_failures();
        EXPECT_EQ(way(), nullptr);
        EXPECT_EQ(bus::memory_failures(), failures + 1);
        void *memory = way();
        EXPECT_NE(memory, nullptr) << "the second";
        free(memory);
    }
}

TEST_F(FaultsBetween, ADescriptorThatCannotBeDuplicatedIsNotSent) {
    begin("");
    CapturedTrace trace;
    request_t *r = request_create_executeFunction("a", "b", 0);
    const variant_t value = descriptor(STDIN_FILENO);
    ASSERT_TRUE(request_addParameter(r, "fd", &value));
    bus::faults_read("dup:1");
    EXPECT_FALSE(kex_sendRequest(client, peer, r));
    EXPECT_THAT(trace.text(), HasSubstr("a descriptor cannot be duplicated"));
    request_destroy(r);
    EXPECT_TRUE(lists());
}

// Without a look at the table nothing is sure to fit; the bus goes on.
TEST_F(FaultsBetween, ATableThatCannotBeLookedAtCostsNoCall) {
    begin("");
    bus::faults_read("dup%100");
    EXPECT_TRUE(lists());
    EXPECT_EQ(client_closed, 0);
}

} // namespace

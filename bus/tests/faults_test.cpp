// SPDX-License-Identifier: MIT
// Faults on request: what KEX_FAULTS asks for happens where it was asked for, and nothing else does.
#include "base/faults.h"
#include "base/trace.h"
#include "support/bus_test.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
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
    for (const char *text : {"memory:1", "epoll:1", "epoll:2", "timer:1", "dup:1"}) {
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
        {"listen:1", "No buffer space available"}};
    for (const auto &[text, sentence] : sentences) {
        SCOPED_TRACE(text);
        CapturedTrace trace;
        plan(text.c_str());
        kex_t *bus = kex_create("bus");
        EXPECT_EQ(connection_listenOnIPC(kex_connection(bus), socket.c_str()), nullptr);
        EXPECT_THAT(trace.text(), HasSubstr("cannot listen on '" + socket + "': " + sentence));
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

} // namespace

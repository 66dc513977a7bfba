// SPDX-License-Identifier: MIT
// How many closings that take long a process may have, and what waits for them: packets with descriptors, and whoever is new.
#include "support/closings.h"
#include "support/shifted_clock.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/wait.h>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

TEST_F(Closer, OneProcessDoesNotHoldUpTheOthers) {
    constexpr size_t kEach = 60;
    constexpr size_t kCalls = 12;
    RawPeer raw(socket);
    greet(raw);
    Stuck stuck; // as many as there are threads
    std::vector<int> first;
    for (uint32_t i = 0; i < bus::kMaxClosers; i++) {
        stuck.push_back(std::make_unique<Lingering>());
        first.push_back(lingering_pair(*stuck.back()));
    }
    while (first.size() < kEach)
        first.push_back(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    pid_t child = fork();
    if (child == 0) {
        stuck.clear(); // closes copies only
        RawPeer greedy(socket);
        const Packet with_many =
            Packet(kOneWayCall, 1).text("Probe").text("note").byte(1).text("number").descriptor_list(kEach);
        greedy.send(hello("greedy"));
        greedy.send(with_many, first);
        for (int fd : first)
            close(fd); // the bus's copies are the last ones
        bool sent = true;
        for (size_t calls = 1; calls < kCalls; calls++)
            sent = greedy.send(with_many, std::vector<int>(kEach, ::socket(AF_UNIX, SOCK_STREAM, 0))) && sent;
        if (sent)
            (void)!write(ends[1], "x", 1);
        pause();
        _exit(0);
    }
    for (int fd : first)
        close(fd);
    // No turn before the child has closed its copies: if it were the last to close, it would linger.
    pollfd all_sent = {ends[0], POLLIN, 0};
    EXPECT_EQ(poll(&all_sent, 1, 20000), 1);
    close(ends[0]);
    close(ends[1]);
    EXPECT_TRUE(turn_until({bus}, [] { return bus::closings_pending() >= bus::kMaxClosingsOfProcess; }));
    turn_until_idle({bus});
    const size_t of_greedy = served::log.size();
    EXPECT_LT(of_greedy, kCalls) << "what it sends waits";
    ASSERT_TRUE(raw.send(call_with_descriptor("note"), {STDIN_FILENO}));
    turn_until_idle({bus});
    EXPECT_EQ(served::log.size(), of_greedy + 1) << "what others send does not";
    stuck.clear(); // resets them
    EXPECT_TRUE(turn_until({bus}, [&] { return served::log.size() == kCalls + 1; })) << "now it is taken";
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST_F(Closer, OneProcessKeepsNobodyNewOut) {
    const int32_t charged = bus::closings_charge(getpid());
    Stuck stuck = all_closers_stuck();
    while (bus::closings_pending() <= bus::kMaxClosings)
        closing_add();
    bus::closings_charge(charged);
    RawPeer newcomer(socket);
    ASSERT_TRUE(newcomer.send(hello()));
    ASSERT_TRUE(newcomer.send(call(1, "Probe", "echo")));
    EXPECT_TRUE(turn_until({bus}, [] { return !served::log.empty(); }));
    EXPECT_GT(bus::closings_pending(), bus::kMaxClosings) << "else nothing is tested";
    stuck.clear(); // resets them
    wait_for_closings();
}

// Each of many processes may have some; together they would fill the table, and then nobody's call found room.
TEST_F(Closer, ThoseOfManyProcessesLeaveTheHostItsDescriptors) {
    const struct {
        const char *what;
        rlim_t places; // besides the host's, or a few less
        bool has_own;
        bool is_taken;
    } rows[] = {{"the last places are for who has none", 40, false, true},
                {"not for who has some", 40, true, false},
                {"there is none left", 0, false, false}};
    for (const auto &row : rows) {
        RawPeer raw(socket);
        greet(raw);
        const int32_t charged = bus::closings_charge(row.has_own ? getpid() : 0);
        Stuck stuck = all_closers_stuck(60);
        for (int32_t i = 1; bus::closings_pending() < bus::kMaxClosings; i++) {
            bus::closings_charge(getpid() + 1 + i % 10);
            closing_add();
        }
        bus::closings_charge(charged);
        const rlim_t others = bus::closings_pending() + bus::kSpareDescriptors + 1;
        const rlim_t size = (others + row.places) * bus::kHostShare / (bus::kHostShare - 1);
        show_table(raw, size);
        {
            const TableSize table(size);
            ASSERT_TRUE(raw.send(call_with_descriptor("note"), {STDIN_FILENO}));
            kex_dispatch(bus);
            EXPECT_EQ(has("note nothing"), row.is_taken) << row.what;
        }
        stuck.clear(); // resets them
        EXPECT_TRUE(turn_until({bus}, [] { return has("note nothing"); })) << "now it is taken";
        EXPECT_EQ(raw.refusal(), "");
        served::log.clear();
        wait_for_closings();
    }
}

// What lies unread of it brings a descriptor, and those before it are not closed for a minute.
TEST_F(Closer, OneThatHasLeftKeepsNobodyNewWaiting) {
    CapturedTrace trace;
    const int32_t charged = bus::closings_charge(getpid());
    Stuck stuck = all_closers_stuck(60);
    while (bus::closings_pending() <= bus::kMaxClosingsOfProcess)
        closing_add();
    bus::closings_charge(charged);
    auto shortest = std::chrono::steady_clock::duration::max(); // a machine may stand still in one of them
    for (int trial = 0; trial < 3; trial++) {
        served::log.clear();
        RawPeer old(socket);
        greet(old);
        ASSERT_TRUE(old.send(call_with_descriptor("note"), {STDIN_FILENO}));
        turn_until_idle({bus});
        old.close();
        const auto begin = std::chrono::steady_clock::now();
        RawPeer newcomer(socket);
        ASSERT_TRUE(newcomer.send(hello()));
        ASSERT_TRUE(newcomer.send(call(1, "Probe", "echo")));
        EXPECT_TRUE(turn_until({bus}, [] { return !served::log.empty(); }));
        EXPECT_THAT(served::log, ElementsAre("echo"));
        shortest = std::min(shortest, std::chrono::steady_clock::now() - begin);
        newcomer.close();
        turn_until_idle({bus});
    }
    EXPECT_LT(shortest, std::chrono::milliseconds(500)) << "not as long as where some are read";
    EXPECT_GT(bus::closings_pending(), bus::kMaxClosingsOfProcess) << "else nothing is tested";
    EXPECT_THAT(trace.text(), HasSubstr("it has left, and descriptors that it sent are not closed yet"));
    stuck.clear(); // resets them
    wait_for_closings();
}

// Seven that come and go stand behind it: their process gets its next connection when they are finished.
TEST_F(Closer, NobodyIsBusyWhileANewcomerIsNotTakenIn) {
    CapturedTrace trace;
    const int32_t charged = bus::closings_charge(getpid());
    Stuck stuck = all_closers_stuck(60);
    while (bus::closings_pending() <= bus::kMaxClosingsOfProcess)
        closing_add();
    bus::closings_charge(charged);
    RawPeer old(socket);
    greet(old);
    ASSERT_TRUE(old.send(call_with_descriptor("note"), {STDIN_FILENO}));
    turn_until_idle({bus});
    old.close();
    for (uint32_t i = 1; i < bus::kMaxPeersOfProcess; i++)
        RawPeer fickle(socket);
    RawPeer newcomer(socket);
    ASSERT_TRUE(newcomer.send(hello()));
    ASSERT_TRUE(newcomer.send(call(1, "Probe", "echo")));
    kex_dispatch(bus);
    EXPECT_LT(turns_within(std::chrono::milliseconds(30)), 30);
    EXPECT_TRUE(turn_until({bus}, [] { return has("echo"); }));
    EXPECT_EQ(newcomer.refusal(), "");
    stuck.clear(); // resets them
    wait_for_closings();
}

// Where there is little room, a packet full of descriptors is read whenever one of those before it is closed: 1 s in all.
TEST_F(Closer, OneThatHasLeftKeepsNobodyNewWaitingHoweverItsPacketsAreRead) {
    if (getuid() != 0)
        GTEST_SKIP() << "needs more descriptors under way than other users may have";
    constexpr size_t kPackets = 120;
    constexpr uint32_t kEach = bus::kMaxDescriptors;
    CapturedTrace trace;
    RawPeer old(socket);
    greet(old);
    const int32_t charged = bus::closings_charge(getpid());
    Stuck stuck = all_closers_stuck(60);
    while (stuck.size() < bus::kMaxClosingsOfProcess) {
        stuck.push_back(std::make_unique<Lingering>(60));
        bus::foreign_descriptor_close(lingering_pair(*stuck.back()));
    }
    bus::closings_charge(charged);
    const Packet full = Packet(kOneWayCall, 1).text("Probe").text("note").byte(1).text("number").descriptor_list(kEach);
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    for (size_t i = 0; i < kPackets; i++) {
        std::vector<int> descriptors(kEach, null); // closed at once, but for one
        stuck.push_back(std::make_unique<Lingering>(60));
        descriptors[0] = lingering_pair(*stuck.back());
        ASSERT_TRUE(old.send(full, descriptors));
        close(descriptors[0]);
    }
    close(null);
    old.close();
    const TableSize low(open_descriptors() + 4 * kEach);
    RawPeer newcomer(socket);
    ASSERT_TRUE(newcomer.send(hello()));
    ASSERT_TRUE(newcomer.send(call(1, "Probe", "echo")));
    const ClockStopped by_hand;
    for (size_t reset = 0; !has("echo") && reset < stuck.size(); reset++) {
        clock_advance(15 * bus::kMillisecond);
        for (int turn = 0; turn < 4; turn++)
            kex_dispatch(bus);
        const uint32_t pending = bus::closings_pending();
        stuck[reset].reset();
        for (int i = 0; i < 20000 && bus::closings_pending() == pending; i++)
            usleep(1000);
    }
    EXPECT_EQ(served::log.back(), "echo");
    EXPECT_GT(served::log.size(), 2u) << "else nothing is tested";
    EXPECT_LT(served::log.size(), kPackets) << "all of them take 1.8 s";
    EXPECT_THAT(trace.text(), HasSubstr("it has left, and descriptors that it sent are not closed yet"));
    stuck.clear();
    wait_for_closings();
}

// Replies that nobody asked for count nowhere else. Whoever waits reads on, since nothing could give them back meanwhile.
TEST_F(Closer, WhoeverIsWaitedForIsBrokenOffWhenItHasTooMany) {
    constexpr uint32_t kEach = bus::kMaxDescriptors;
    CapturedTrace trace;
    RawPeer raw(socket);
    raw.send(hello());
    peer_t *peer = peer_of(raw, bus);
    Stuck stuck = all_closers_stuck(60);
    request_t *r = request_create_executeFunction("Theirs", "slow", 0);
    ASSERT_TRUE(kex_sendRequest(bus, peer, r));
    const Packet unasked = Packet(kReply, 77).byte(0).byte(1).descriptor_list(kEach);
    const int slow = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    for (uint32_t sent = 0; sent < 2 * bus::kMaxClosings; sent += kEach)
        ASSERT_TRUE(raw.send(unasked, std::vector<int>(kEach, slow)));
    close(slow);
    timeval limit = {1, 0};
    EXPECT_FALSE(kex_waitForReply(bus, r, &limit));
    EXPECT_THAT(lines_of(r), ElementsAre(HasSubstr("it sent too much while its reply was waited for")));
    EXPECT_LE(bus::closings_pending_of(getpid()), bus::kMaxClosings + kEach);
    request_destroy(r);
    stuck.clear(); // resets them
    wait_for_closings();
}

TEST_F(Closer, BeyondTheLimitNothingMoreOfTheSendersIsTakenInAndNobodyNew) {
    CapturedTrace trace;
    RawPeer raw(socket);
    RawPeer other(socket);
    greet(raw);
    greet(other);
    {
        const int32_t charged = bus::closings_charge(getpid());
        Stuck stuck = all_closers_stuck();
        for (uint32_t i = bus::kMaxClosers; i < bus::kMaxClosings; i++) {
            bus::closings_charge(getpid() + static_cast<int32_t>(i / bus::kMaxClosingsOfProcess));
            closing_add();
        }
        bus::closings_charge(charged);
        ASSERT_EQ(bus::closings_pending(), bus::kMaxClosings);
        ASSERT_TRUE(raw.send(call_with_descriptor("note"), {STDIN_FILENO}));
        ASSERT_TRUE(other.send(call(1, "Probe", "echo")));
        RawPeer newcomer(socket);
        ASSERT_TRUE(newcomer.send(hello()));
        kex_dispatch(bus);
        kex_dispatch(bus);
        EXPECT_THAT(served::log, ElementsAre("echo")) << "what brings no descriptor";
        EXPECT_EQ(newcomer.receive(), std::nullopt);
        EXPECT_LT(turns_within(std::chrono::milliseconds(100)), 50) << "nobody is busy meanwhile";
        raw.close();
        EXPECT_LT(turns_within(std::chrono::milliseconds(100)), 50) << "nor when the one that waits goes";
        stuck.clear(); // resets them
        wait_for_closings();
        EXPECT_TRUE(turn_until({bus}, [&] { return served::log.size() == 2; })) << "now it is taken";
        EXPECT_TRUE(turn_until({bus}, [&] { return !newcomer.receive_all().empty(); }));
    }
}

} // namespace

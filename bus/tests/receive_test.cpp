// SPDX-License-Identifier: MIT
// What reading costs: the system calls of this program's bus are counted (see CMakeLists.txt).
#include "served_functions.h"
#include "support/served_bus.h"
#include "support/shifted_clock.h"

#include <algorithm>
#include <memory>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace support;

namespace {

int reads;
int most_packets;        // that one read has brought
uint64_t time_of_a_read; // that the kernel's clock shows more after each one, in ns
uint64_t time_of_an_accept;

void count_read() {
    reads++;
    clock_advance(time_of_a_read);
}

} // namespace

extern "C" {
ssize_t __real_recvmsg(int fd, msghdr *message, int flags);
ssize_t __wrap_recvmsg(int fd, msghdr *message, int flags);
int __real_recvmmsg(int fd, mmsghdr *messages, unsigned count, int flags, timespec *timeout);
int __wrap_recvmmsg(int fd, mmsghdr *messages, unsigned count, int flags, timespec *timeout);

ssize_t __wrap_recvmsg(int fd, msghdr *message, int flags) {
    count_read();
    return __real_recvmsg(fd, message, flags);
}
int __wrap_recvmmsg(int fd, mmsghdr *messages, unsigned count, int flags, timespec *timeout) {
    count_read();
    const int packets = __real_recvmmsg(fd, messages, count, flags, timeout);
    most_packets = std::max(most_packets, packets);
    return packets;
}
int __real_accept4(int fd, sockaddr *address, socklen_t *length, int flags);
int __wrap_accept4(int fd, sockaddr *address, socklen_t *length, int flags);

int __wrap_accept4(int fd, sockaddr *address, socklen_t *length, int flags) {
    clock_advance(time_of_an_accept);
    return __real_accept4(fd, address, length, flags);
}
}

namespace {

class Receive : public ServedBus {
protected:
    Receive() : ServedBus("server") {}
    RawPeer &connect() {
        raws.push_back(connected_peer());
        return *raws.back();
    }
    // Reads of one turn.
    int reads_of_a_turn() {
        reads = 0;
        kex_dispatch(bus);
        return reads;
    }

    std::vector<std::unique_ptr<RawPeer>> raws;
};

TEST_F(Receive, ConnectionThatWasReadyOnceIsNotReadAgain) {
    for (int i = 0; i < 5; i++)
        connect();
    for (auto &raw : raws)
        ASSERT_TRUE(raw->send(Packet(kOneWayCall, 1).text("Probe").text("note").byte(0)));
    turn_until_idle({bus});
    for (int turn = 0; turn < 3; turn++)
        EXPECT_EQ(reads_of_a_turn(), 0) << "nobody has sent anything";
    ASSERT_TRUE(raws[2]->send(Packet(kOneWayCall, 1).text("Probe").text("note").byte(0)));
    EXPECT_EQ(reads_of_a_turn(), 1) << "one has";
    EXPECT_EQ(reads_of_a_turn(), 0);
}

TEST_F(Receive, NewcomerCostsNoReadOfTheOthers) {
    for (int i = 0; i < 5; i++)
        connect();
    RawPeer newcomer(socket);
    EXPECT_EQ(reads_of_a_turn(), 0);
    newcomer.send(hello());
    EXPECT_EQ(reads_of_a_turn(), 1);
}

// Half of the 10 ms that a turn may work; what is read last is read to its end. The next turn begins where this one stopped.
TEST_F(Receive, TurnReadsForFiveMilliseconds) {
    constexpr size_t kPeers = 8;
    const Packet note = Packet(kOneWayCall, 1).text("Probe").text("note").byte(0);
    for (size_t i = 0; i < kPeers; i++)
        connect();
    for (auto &raw : raws)
        ASSERT_TRUE(raw->send(note));
    time_of_a_read = 2000000;
    EXPECT_LE(reads_of_a_turn(), 3) << "2 ms each";
    EXPECT_LE(served::log.size(), 3u);
    for (auto &raw : raws)
        ASSERT_TRUE(raw->send(note));
    for (int turn = 0; turn < 7; turn++)
        EXPECT_LE(reads_of_a_turn(), 3);
    time_of_a_read = 0;
    turn_until_idle({bus});
    EXPECT_EQ(served::log.size(), 2 * kPeers) << "nobody is left out";
}

// The same for a wait, which looks at its time then: a packet holds up to 64 messages, and a peer may send without end.
TEST_F(Receive, WaitReadsForFiveMillisecondsBetweenLooksAtItsTime) {
    RawPeer &raw = connect();
    request_t *r = request_create_executeFunction("Theirs", "slow", 0);
    ASSERT_TRUE(kex_sendRequest(bus, peer_of(raw, bus), r));
    const std::string notices = together(std::vector<Packet>(64, Packet(kWaiting, 1)));
    for (int i = 0; i < 20; i++)
        ASSERT_TRUE(raw.send(notices));
    time_of_a_read = 2000000;
    reads = 0;
    const timeval limit = {0, 1000};
    EXPECT_FALSE(kex_waitForReply(bus, r, &limit));
    EXPECT_LE(reads, 4) << "2 ms each; the time begins behind the first one";
    time_of_a_read = 0;
    request_destroy(r);
}

TEST_F(Receive, WhatHasBeenReadHasATimeOfItsOwnToRun) {
    constexpr int kCalls = 64;
    RawPeer &raw = connect();
    for (int i = 0; i < kCalls; i++)
        ASSERT_TRUE(raw.send(Packet(kOneWayCall, 1).text("Probe").text("note").byte(0)));
    time_of_a_read = 20000000; // more than a turn may take
    int turns = 0;
    for (; served::log.size() < kCalls && turns < kCalls; turns++)
        kex_dispatch(bus);
    time_of_a_read = 0;
    EXPECT_EQ(served::log.size(), static_cast<size_t>(kCalls));
    EXPECT_LE(turns, 16) << "a batch in each, and not a call in each";
}

// Whoever leaves much behind in the listener's queue does not hold up those who are connected.
TEST_F(Receive, TurnAcceptsForFiveMilliseconds) {
    constexpr size_t kNewcomers = 8;
    for (size_t i = 0; i < kNewcomers; i++)
        raws.push_back(std::make_unique<RawPeer>(socket));
    time_of_an_accept = 2000000;
    size_t most = 0;
    size_t taken_in = 0;
    for (size_t turn = 0; turn < kNewcomers; turn++) {
        const size_t before = taken_in;
        kex_dispatch(bus);
        for (auto &raw : raws)
            taken_in += raw->receive_all().size();
        most = std::max(most, taken_in - before);
    }
    time_of_an_accept = 0;
    EXPECT_LE(most, 3u) << "2 ms each";
    EXPECT_EQ(taken_in, kNewcomers) << "the next turn goes on";
}

TEST_F(Receive, ManyPacketsComeInLargeBatches) {
    const TableSize table(kRoomForEightPackets);
    if (!table.made())
        GTEST_SKIP() << "the process may not have so many descriptors";
    RawPeer &raw = connect();
    constexpr int kPackets = 128;
    for (int i = 0; i < kPackets; i++)
        ASSERT_TRUE(raw.send(Packet(kOneWayCall, 1).text("Probe").text("note").byte(0)));
    reads = 0;
    turn_until_idle({bus});
    EXPECT_EQ(served::log.size(), static_cast<size_t>(kPackets));
    EXPECT_LE(reads, kPackets / 6 + 4) << "six at a time, once it is known that there are many";
}

// What is read of one peer at a time keeps the others from being read: many packets of few messages, or few of many.
TEST_F(Receive, ReadGrowsUntilItBringsOneHundredAndTwentyEightMessages) {
    const struct {
        size_t messages; // in a packet
        int packets;     // in the largest read
    } rows[] = {{1, 6}, {32, 4}, {64, 2}};
    for (const auto &row : rows) {
        RawPeer &raw = connect();
        const std::string packet = together(std::vector<Packet>(row.messages, Packet(kWaiting, 1)));
        most_packets = 0;
        for (int turn = 0; turn < 12; turn++) {
            const support::ClockStopped whole_turn;
            while (raw.send(packet)) {
            }
            kex_dispatch(bus);
        }
        EXPECT_EQ(most_packets, row.packets) << row.messages << " messages a packet";
    }
}

TEST_F(Receive, OneBatchOfDescriptorsMayPassTheLimit) {
    const TableSize table(kRoomForEightPackets);
    if (!table.made())
        GTEST_SKIP() << "the process may not have so many descriptors";
    static size_t most;
    most = 0;
    served::probe = [](function_call_t *call, argument_list_t *, variant_t *) {
        most = std::max(most, open_descriptors());
        fcall_destroy(call);
        return 0;
    };
    RawPeer &raw = connect();
    const Packet with_many = Packet(kOneWayCall, 1).text("Probe").text("run").byte(1).text("fds").descriptor_list(64);
    for (int i = 0; i < 22; i++)
        ASSERT_TRUE(raw.send(Packet(kWaiting, 1)));
    const size_t before = open_descriptors();
    for (int i = 0; i < 16; i++)
        ASSERT_TRUE(raw.send(with_many, std::vector<int>(64, STDIN_FILENO)));
    turn_until_idle({bus});
    EXPECT_LE(most - before, 384u) << "six packets of 64, when nothing of the peer waited";
    EXPECT_GT(most - before, 128u) << "else the pages promise too little";
}

// As soon as a call that waits holds descriptors, the next packets are expected to bring some too.
TEST_F(Receive, CallWithADescriptorMakesTheBatchesSmaller) {
    const TableSize table(kRoomForEightPackets);
    if (!table.made())
        GTEST_SKIP() << "the process may not have so many descriptors";
    RawPeer &raw = connect();
    const Packet plain = Packet(kOneWayCall, 1).text("Probe").text("note").byte(0);
    const Packet with_one =
        Packet(kOneWayCall, 1).text("Probe").text("note").byte(1).text("fd").byte(18).word(0).word(0);
    int reads_for[2] = {};
    for (bool brings : {false, true}) {
        turn_until_idle({bus});
        served::log.clear();
        for (int i = 0; i < 60; i++) {
            const bool now = brings && i == 10; // among the first that come six at a time
            ASSERT_TRUE(raw.send(now ? with_one : plain, now ? std::vector<int>{STDIN_FILENO} : std::vector<int>{}));
        }
        reads = 0;
        turn_until_idle({bus});
        EXPECT_EQ(served::log.size(), 60u);
        reads_for[brings] = reads;
    }
    EXPECT_GE(reads_for[true], reads_for[false] + 4) << "two at a time for the rest of the turn";
}

TEST_F(Receive, ProcessThatHoldsManyDescriptorsLeavesRoomForNewcomers) {
    constexpr uint32_t kEach = 60;
    static size_t most;
    static size_t calls;
    most = calls = 0;
    served::probe = [](function_call_t *call, argument_list_t *, variant_t *) {
        most = std::max(most, open_descriptors());
        calls++;
        clock_advance(10000000); // a turn runs one of them
        fcall_destroy(call);
        return 0;
    };
    const Packet with_many =
        Packet(kOneWayCall, 1).text("Probe").text("run").byte(1).text("fds").descriptor_list(kEach);
    for (int i = 0; i < 7; i++)
        connect();
    const TableSize table(600);
    show_table(*raws[0], 600);
    {
        const TableSize in_flight(4096); // a user has no more of them than a process may hold
        for (auto &raw : raws) {
            for (int i = 0; i < 2; i++)
                ASSERT_TRUE(raw->send(with_many, std::vector<int>(kEach, STDIN_FILENO)));
        }
    }
    raws.back()->close(); // what it has sent waits as well
    RawPeer newcomer(socket);
    ASSERT_TRUE(newcomer.send(hello()));
    const size_t before = open_descriptors() + 1; // the bus's of the newcomer
    for (int turn = 0; turn < 4; turn++)
        kex_dispatch(bus);
    EXPECT_LT(calls, 7u) << "else nothing is tested";
    EXPECT_LE(most - before, 128u + kEach) << "the limit, passed by one message";
    EXPECT_TRUE(turn_until({bus}, [] { return calls == 14; })) << "the rest follows";
    turn_until_idle({bus});
    EXPECT_EQ(newcomer.receive_all().size(), 1u);
}

// ----------------------------------------------------------------------------------------- Several in one packet

TEST_F(Receive, CallsOfAPacketRunInTheirOrder) {
    RawPeer &raw = connect();
    std::vector<Packet> calls;
    std::vector<std::string> wanted;
    for (uint32_t i = 0; i < 64; i++) {
        calls.push_back(note(i));
        wanted.push_back("note " + std::to_string(i));
    }
    ASSERT_TRUE(raw.send(together(calls)));
    EXPECT_EQ(reads_of_a_turn(), 1);
    turn_until_idle({bus});
    EXPECT_EQ(served::log, wanted);
}

TEST_F(Receive, CallsOfAPacketTakeTurnsWithThoseOfOthers) {
    RawPeer &raw = connect();
    RawPeer &other = connect();
    // A machine that stands still between the two ends the time for reading: only one is read in that turn.
    for (int attempt = 0; attempt < 10; attempt++) {
        served::log.clear();
        ASSERT_TRUE(raw.send(together(std::vector<Packet>(64, note(1)))));
        ASSERT_TRUE(other.send(note(2)));
        turn_until_idle({bus});
        ASSERT_EQ(served::log.size(), 65u);
        if (std::find(served::log.begin(), served::log.end(), "note 2") - served::log.begin() <= 1)
            return;
    }
    FAIL() << "each time the calls of the packet ran first";
}

TEST_F(Receive, EachMessageOfAPacketGetsItsOwnDescriptors) {
    static std::vector<std::string> read;
    read.clear();
    served::probe = [](function_call_t *call, argument_list_t *arguments, variant_t *) {
        variant_list_t *list = nullptr;
        std::string bytes;
        argument_getList(arguments, "fds", 0, &list);
        for (uint32_t i = 0; i < variant_list_size(list); i++) {
            const int fd = variant_fd(variant_list_at(list, i));
            char byte = '?';
            EXPECT_EQ(pread(fd, &byte, 1, 0), 1);
            bytes += byte;
            close(fd);
        }
        variant_list_destroy(list);
        read.push_back(bytes);
        fcall_destroy(call);
        return 0;
    };
    std::vector<int> files;
    for (char byte : std::string("abcdef")) {
        files.push_back(memfd_create("file", MFD_CLOEXEC));
        ASSERT_EQ(write(files.back(), &byte, 1), 1);
    }
    auto with = [](const std::vector<uint32_t> &indices) {
        Packet packet = Packet(kOneWayCall, 1)
                            .text("Probe")
                            .text("run")
                            .byte(1)
                            .text("fds")
                            .byte(13)
                            .word(static_cast<uint32_t>(indices.size()));
        for (uint32_t index : indices)
            packet.byte(18).word(index).word(0);
        return packet.descriptors(static_cast<uint32_t>(indices.size()));
    };
    ASSERT_TRUE(connect().send(together({with({1, 0}), with({}), with({0}), with({2, 1, 0})}), files));
    for (int fd : files)
        close(fd);
    turn_until_idle({bus});
    EXPECT_EQ(read, (std::vector<std::string>{"ba", "", "c", "fed"}));
}

// The peer is read on as long as the fullest packet there can be passes no limit: whatever comes, none is passed.
TEST_F(Receive, NoLimitIsPassedByAPacketOfManyCalls) {
    static size_t ran;
    ran = 0;
    served::probe = [](function_call_t *call, argument_list_t *, variant_t *) {
        clock_advance(10000000); // a turn runs one of them
        ran++;
        fcall_destroy(call);
        return 0;
    };
    RawPeer &raw = connect();
    const std::string calls =
        together(std::vector<Packet>(64, Packet(kOneWayCall, 1).text("Probe").text("run").byte(0)));
    size_t sent = 0;
    for (int turn = 0; turn < 40; turn++) {
        while (raw.send(calls))
            sent += 64;
        kex_dispatch(bus);
    }
    const size_t before = ran;
    ASSERT_GT(sent, before + 1024);
    served::probe = [](function_call_t *call, argument_list_t *, variant_t *) {
        peer_disconnect(fcall_peer(call)); // what has been read runs all the same
        ran++;
        fcall_destroy(call);
        return 0;
    };
    turn_until_idle({bus});
    EXPECT_LE(ran - before, 1024u);
    EXPECT_GT(ran - before, 1024u - 64u - 1u) << "it is read as long as a packet fits";
}

TEST_F(Receive, RefusalOfAPacketLeavesWhatCameBeforeIt) {
    CapturedTrace trace;
    RawPeer &raw = connect();
    ASSERT_TRUE(raw.send(together({note(1), note(2)})));
    ASSERT_TRUE(raw.send(together({note(3), note(4).size(0)})));
    turn_until_idle({bus});
    EXPECT_EQ(raw.refusal(), "a message is shorter than its head");
    EXPECT_EQ(served::log, (std::vector<std::string>{"note 1", "note 2"}));
}

} // namespace

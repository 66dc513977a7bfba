// SPDX-License-Identifier: MIT
// Peers that send all they can, read nothing, or bring more descriptors than there is room for: others go on.
#include "served_functions.h"
#include "support/hostile.h"

#include <algorithm>
#include <memory>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

TEST_F(Hostile, FloodIsReadNoFurtherThanItIsDispatched) {
    auto raw = connected_peer();
    auto other = connected_peer();
    size_t sent = 0;
    Packet note = Packet(kOneWayCall, 1).text("Probe").text("note").byte(0);
    for (int turn = 0; turn < 50; turn++) {
        while (raw->send(note))
            sent++;
        ASSERT_TRUE(other->send(note));
        size_t before = served::log.size();
        kex_dispatch(bus);
        EXPECT_LE(served::log.size() - before, 1024u + 1u);
    }
    settle();
    EXPECT_EQ(served::log.size(), sent + 50);
}

TEST_F(Hostile, CallsOfOthersDoNotStandBehindAFlood) {
    auto raw = connected_peer();
    auto other = connected_peer();
    Packet note = Packet(kOneWayCall, 1).text("Probe").text("note").byte(0);
    size_t lying = 0;
    for (int turn = 0; turn < 8; turn++) { // until the bus reads large batches
        while (raw->send(note))
            lying++;
        kex_dispatch(bus);
    }
    lying -= served::log.size();
    ASSERT_GT(lying, 140u) << "the socket holds more than a turn takes";
    served::log.clear();
    ASSERT_TRUE(other->send(Packet(kOneWayCall, 1).text("Plain").text("plain").byte(0)));
    // Where the machine is busy with others, a turn may have ended before that peer was read.
    auto ran = [] { return std::count(served::log.begin(), served::log.end(), "plain Plain") == 1; };
    EXPECT_TRUE(turn_until({bus}, ran));
    EXPECT_LE(served::log.size(), 65u);
    settle();
    EXPECT_EQ(served::log.size(), lying + 1);
}

TEST_F(Hostile, FloodOfPacketsThatAreNoCallsLetsOthersLive) {
    auto raw = connected_peer();
    auto other = connected_peer();
    for (int turn = 0; turn < 20; turn++) {
        while (raw->send(Packet(kWaiting, 1)))
            ;
        other->send(Packet(kOneWayCall, 1).text("Probe").text("note").byte(0));
        kex_dispatch(bus);
    }
    settle();
    EXPECT_EQ(served::log.size(), 20u);
}

TEST_F(Hostile, PeerThatNeverReadsItsRepliesIsBrokenOff) {
    CapturedTrace trace;
    auto raw = connected_peer();
    size_t calls = 0;
    Packet call =
        Packet(kCall, 1).text("Probe").text("echo").byte(1).text("text").byte(0).text(std::string(60000, 'x'));
    while (calls < 1000 && trace.text().empty()) {
        calls += raw->send(call);
        kex_dispatch(bus);
    }
    EXPECT_THAT(trace.text(), HasSubstr("it does not read its replies"));
    EXPECT_LT(calls, 100u);
    expect_alive();
}

TEST_F(Hostile, DescriptorsLostForWantOfRoomAreNotLostSilently) {
    CapturedTrace trace;
    auto raw = connected_peer();
    const Packet with_many = Packet(kCall, 1).text("Probe").text("note").byte(1).text("fds").descriptor_list(64);
    const Packet with_ten = Packet(kCall, 1).text("Probe").text("note").byte(1).text("fds").descriptor_list(10);
    std::vector<std::string> after_ten;
    std::string refused_ten, refused_many;
    size_t after_many;
    settle(); // the sanitizers look at an object's type once, and need descriptors for that
    {
        const FullTable full(open_descriptors() + 20);
        // The bus looks at the table now and then; here it fills up behind its back.
        for (int reads = 0; reads < 32; reads++) {
            raw->send(Packet(kWaiting, 1));
            kex_dispatch(bus);
        }
        raw->send(with_ten, std::vector<int>(10, STDIN_FILENO));
        settle();
        after_ten = served::log;
        refused_ten = raw->refusal();
        raw->send(with_many, std::vector<int>(64, STDIN_FILENO));
        settle();
        after_many = served::log.size();
        refused_many = raw->refusal();
    }
    // Checked only now: the sanitizers' own checks need descriptors too.
    EXPECT_THAT(after_ten, ElementsAre("note nothing")) << "ten fit into the spare ones";
    EXPECT_EQ(refused_ten, "");
    EXPECT_EQ(after_many, 1u);
    EXPECT_EQ(refused_many, "descriptors were lost: this process has no more");
    settle();
    expect_alive();
}

TEST_F(Hostile, DescriptorsAreTakenAsFastAsCallsGiveThemBack) {
    CapturedTrace trace;
    auto raw = connected_peer();
    constexpr size_t kCalls = 8;
    const Packet with_ten = Packet(kOneWayCall, 1).text("Probe").text("note").byte(1).text("fds").descriptor_list(10);
    const rlim_t low = open_descriptors() + 12;
    show_table(*raw, low);
    // The kernel holds what a user without privileges has under way against the sender's limit: the small one is the reader's.
    size_t sent = 0;
    for (size_t i = 0; i < kCalls; i++)
        sent += raw->send(with_ten, std::vector<int>(10, STDIN_FILENO));
    size_t served;
    std::string refused;
    {
        const TableSize table(low);
        settle();
        served = served::log.size();
        refused = raw->refusal();
    }
    // Checked only now: the sanitizers' own checks need descriptors too.
    EXPECT_EQ(sent, kCalls);
    EXPECT_EQ(served, kCalls) << "28 at a time fit, 80 come";
    EXPECT_EQ(refused, "");
    expect_alive();
}

TEST_F(Hostile, CallsThatWaitLeaveTheHostItsDescriptors) {
    constexpr uint32_t kEach = 60;
    constexpr rlim_t kLow = 160; // a quarter of them is the host's
    std::unique_ptr<RawPeer> greedy[] = {connected_peer(), connected_peer(), connected_peer()};
    auto modest = connected_peer();
    const Packet with_many =
        Packet(kOneWayCall, 1).text("Probe").text("run").byte(1).text("fds").descriptor_list(kEach);
    static std::vector<size_t> opened;
    opened.clear();
    served::probe = [](function_call_t *call, argument_list_t *, variant_t *) {
        std::vector<int> own;
        for (int fd = 0; fd >= 0 && own.size() < kLow / 4;) {
            fd = dup(0);
            if (fd >= 0)
                own.push_back(fd);
        }
        opened.push_back(own.size());
        for (int fd : own)
            close(fd);
        served::log.push_back("run");
        fcall_destroy(call);
        return 0;
    };
    show_table(*modest, kLow);
    // The kernel holds what a user without privileges has under way against the sender's limit: the small one is the reader's.
    size_t sent = 0;
    for (auto &raw : greedy)
        sent += raw->send(with_many, std::vector<int>(kEach, STDIN_FILENO));
    sent += modest->send(Packet(kOneWayCall, 1).text("Probe").text("note").byte(0));
    {
        const TableSize table(kLow);
        turn_until({bus}, [] { return opened.size() == 3; });
    }
    EXPECT_EQ(sent, 4u);
    EXPECT_THAT(opened, testing::Each(kLow / 4)) << "whatever else waits";
    EXPECT_EQ(std::count(served::log.begin(), served::log.end(), "run"), 3);
    EXPECT_EQ(std::count(served::log.begin(), served::log.end(), "note nothing"), 1);
    for (auto &raw : greedy)
        EXPECT_FALSE(raw->is_closed());
}

TEST_F(Hostile, OldestPeerDoesNotTakeAllRoomForDescriptors) {
    constexpr uint32_t kEach = 60; // two of these do not fit
    constexpr uint32_t kCalls = 20;
    auto oldest = connected_peer();
    auto other = connected_peer();
    constexpr rlim_t kLow = 160;
    auto note_with_many = [](uint32_t number) {
        Packet packet = Packet(kOneWayCall, 1).text("Probe").text("note").byte(2).text("number").byte(8).word(number);
        return packet.text("fds").descriptor_list(kEach);
    };
    show_table(*other, kLow);
    size_t sent = 0;
    for (uint32_t i = 0; i < kCalls; i++)
        sent += oldest->send(note_with_many(1), std::vector<int>(kEach, STDIN_FILENO));
    sent += other->send(note_with_many(2), std::vector<int>(kEach, STDIN_FILENO));
    {
        const TableSize table(kLow);
        settle();
    }
    // Checked only now: the sanitizers' own checks need descriptors too.
    ASSERT_EQ(sent, kCalls + 1);
    ASSERT_EQ(served::log.size(), kCalls + 1);
    EXPECT_LE(place_of("note 2"), 3) << "its turn comes";
}

} // namespace

// SPDX-License-Identifier: MIT
// Who ended first is finished first, and who comes new is taken in at once.
#include "served_functions.h"
#include "support/served_bus.h"

#include <algorithm>
#include <chrono>
#include <linux/sockios.h>
#include <memory>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class Succession : public ServedBus {
protected:
    Succession() : ServedBus("server") {
        kex_onPeerClosed(
            bus,
            [](kex_t *, peer_t *peer, void *) {
                served::log.push_back(std::string("closed ") + peer_processName(peer));
            },
            nullptr);
    }
    std::unique_ptr<RawPeer> connect(const std::string &name) {
        auto raw = std::make_unique<RawPeer>(socket);
        EXPECT_TRUE(raw->send(hello(name)));
        return raw;
    }
    // Sends fifty calls that take 3 ms each, and ends.
    static void leave_long_calls(RawPeer &raw) {
        make_run_take(std::chrono::milliseconds(3));
        for (int i = 0; i < 50; i++)
            EXPECT_TRUE(raw.send(run()));
        raw.close();
    }
};

TEST_F(Succession, WhoComesBackFindsItsOldConnectionFinished) {
    auto old = connected_peer("old");
    uint32_t sent = 0;
    while (old->send(note(1)))
        sent++;
    ASSERT_GT(sent, 140u) << "more than a turn reads";
    old->close();
    auto back = connect("back");
    ASSERT_TRUE(back->send(note(2)));
    turn_until_idle({bus});
    ASSERT_EQ(served::log.size(), sent + 2);
    EXPECT_EQ(served::log[sent], "closed old");
    EXPECT_EQ(served::log[sent + 1], "note 2");
}

TEST_F(Succession, NewcomerIsTakenInWhileOthersAreDrained) {
    auto flood = connected_peer("flood");
    auto other = connected_peer("other");
    ptrdiff_t lying = 0;
    while (flood->send(note(1)))
        lying++;
    auto newcomer = connect("newcomer");
    ASSERT_TRUE(other->send(note(3)));
    kex_dispatch(bus);
    auto packets = newcomer->receive_all();
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(kind_of(packets[0]), kHello);
    EXPECT_LE(std::count(served::log.begin(), served::log.end(), "note 1"), 64) << "nobody was drained for it";
    ASSERT_TRUE(newcomer->send(note(4)));
    EXPECT_TRUE(turn_until({bus}, [] { return has("note 3") && has("note 4"); }));
    EXPECT_LT(std::count(served::log.begin(), served::log.end(), "note 1"), lying) << "it does not wait for its end";
    turn_until_idle({bus});
}

TEST_F(Succession, OthersGoOnWhileANewcomerWaits) {
    auto old = connected_peer("old");
    auto other = connected_peer("other");
    leave_long_calls(*old);
    auto newcomer = connect("newcomer");
    ASSERT_TRUE(newcomer->send(note(2)));
    ASSERT_TRUE(other->send(note(3)));
    EXPECT_TRUE(turn_until({bus}, [] { return has("note 3"); }));
    EXPECT_FALSE(has("closed old")) << "it has still much to run";
    EXPECT_FALSE(has("note 2"));
    turn_until_idle({bus});
    EXPECT_LT(place_of("closed old"), place_of("note 2"));
}

TEST_F(Succession, LightCallOfAnotherWaitsForOneLongCallOfTheOldOne) {
    auto old = connected_peer("old");
    auto other = connected_peer("other");
    leave_long_calls(*old);
    auto newcomer = connect("newcomer");
    ASSERT_TRUE(newcomer->send(note(2)));
    for (int i = 0; i < 5; i++)
        kex_dispatch(bus);
    ASSERT_FALSE(has("closed old"));
    const auto before = static_cast<ptrdiff_t>(served::log.size());
    ASSERT_TRUE(other->send(note(3)));
    EXPECT_TRUE(turn_until({bus}, [] { return has("note 3"); }));
    EXPECT_LE(place_of("note 3") - before, 1);
    turn_until_idle({bus});
    EXPECT_LT(place_of("closed old"), place_of("note 2"));
}

TEST_F(Succession, NewcomerThatEndsWhileItWaitsComesBeforeTheNextOne) {
    auto old = connected_peer("old");
    while (old->send(note(1)))
        ;
    old->close();
    auto second = connect("second");
    ASSERT_TRUE(second->send(note(2)));
    kex_dispatch(bus);
    second->close();
    auto third = connect("third");
    ASSERT_TRUE(third->send(note(3)));
    turn_until_idle({bus});
    EXPECT_LT(place_of("closed old"), place_of("note 2"));
    EXPECT_LT(place_of("note 2"), place_of("closed second"));
    EXPECT_LT(place_of("closed second"), place_of("note 3"));
}

// A newcomer's calls run after those of the old one, so the old one cannot wait for what they hold.
TEST_F(Succession, ShortTableStopsNeitherTheOldOneNorTheNewcomer) {
    CapturedTrace trace;
    auto old = connected_peer("old");
    const rlim_t low = open_descriptors() + 60; // less than what one packet may bring is free
    Packet with_descriptor =
        Packet(kOneWayCall, 1).text("Probe").text("note").byte(1).text("fd").byte(18).word(0).word(1);
    show_table(*old, low);
    for (int i = 0; i < 100; i++)
        ASSERT_TRUE(old->send(note(1)));
    ASSERT_TRUE(old->send(with_descriptor, {STDIN_FILENO}));
    old->close();
    auto newcomer = connect("newcomer");
    ASSERT_TRUE(newcomer->send(with_descriptor, {STDIN_FILENO}));
    ASSERT_TRUE(newcomer->send(note(2)));
    bool came;
    {
        const TableSize table(low);
        came = turn_until({bus}, [] { return has("note 2"); });
    }
    // Checked only now: the sanitizers' own checks need descriptors too.
    EXPECT_TRUE(came);
    EXPECT_LT(place_of("closed old"), place_of("note 2"));
    EXPECT_EQ(std::count(served::log.begin(), served::log.end(), "note nothing"), 2);
}

TEST_F(Succession, OfANewcomerThatWaitsOnlyTheHelloIsRead) {
    auto old = connected_peer("old");
    leave_long_calls(*old);
    auto newcomer = connect("newcomer");
    for (int i = 0; i < 50; i++)
        ASSERT_TRUE(newcomer->send(note(2)));
    int unread[2] = {};
    for (int &bytes : unread) {
        for (int turns = 0; turns < 4; turns++)
            kex_dispatch(bus);
        ASSERT_EQ(ioctl(newcomer->fd(), SIOCOUTQ, &bytes), 0);
    }
    ASSERT_FALSE(has("closed old"));
    EXPECT_GT(unread[0], 0);
    EXPECT_EQ(unread[0], unread[1]);
    EXPECT_EQ(newcomer->receive_all().size(), 1u) << "it is taken in";
    EXPECT_EQ(newcomer->refusal(), "");
    EXPECT_TRUE(turn_until({bus}, [] { return std::count(served::log.begin(), served::log.end(), "note 2") == 50; }));
    EXPECT_LT(place_of("closed old"), place_of("note 2"));
}

// Else whoever comes and goes leaves more and more to run, and every newcomer stands behind it.
TEST_F(Succession, EndedConnectionKeepsItsPlaceUntilItsCallsHaveRun) {
    make_run_take(std::chrono::milliseconds(1));
    constexpr int kRounds = 30;
    constexpr size_t kCalls = 40;
    {
        CapturedTrace trace;
        for (int i = 0; i < kRounds; i++) {
            auto raw = connect("fickle");
            for (size_t sent = 0; sent < kCalls; sent++)
                raw->send(run());
            raw->close();
            kex_dispatch(bus);
        }
        EXPECT_THAT(trace.text(), HasSubstr("its process has 8 connections already"));
    }
    turn_until_idle({bus});
    EXPECT_LT(static_cast<size_t>(std::count(served::log.begin(), served::log.end(), "run")), kRounds * kCalls);
    auto back = connected_peer("back");
    ASSERT_TRUE(back->send(note(1)));
    EXPECT_TRUE(turn_until({bus}, [] { return has("note 1"); })) << "places are given back";
}

// What the bus has not looked at yet is not the fault of whoever comes back.
TEST_F(Succession, ProgramThatComesAndGoesAtOnceIsNotRefused) {
    constexpr ptrdiff_t kTimes = 50;
    CapturedTrace trace;
    for (int i = 0; i < kTimes; i++)
        connect("fickle")->close();
    turn_until_idle({bus});
    EXPECT_EQ(trace.text().find("refused"), std::string::npos) << trace.text();
    EXPECT_EQ(std::count(served::log.begin(), served::log.end(), "closed fickle"), kTimes);
}

// A newcomer waits for all that a process has left behind; that is not to become more and more.
TEST_F(Succession, ProcessThatHasLeftMuchOnTwoConnectionsGetsNoFurtherOne) {
    CapturedTrace trace;
    std::unique_ptr<RawPeer> both[] = {connected_peer("flood"), connected_peer("flood")};
    for (auto &raw : both) {
        while (raw->send(note(1)))
            ;
        raw->close();
    }
    auto third = connect("third");
    kex_dispatch(bus);
    EXPECT_EQ(third->refusal(), "its process has left calls of 2 connections to be run");
    turn_until_idle({bus});
    auto back = connected_peer("back");
    ASSERT_TRUE(back->send(note(2)));
    EXPECT_TRUE(turn_until({bus}, [] { return has("note 2"); })) << "once they have run";
}

TEST_F(Succession, SixtyFourCallsLeftOnAConnectionAreNotMuch) {
    constexpr ptrdiff_t kEach = 90;
    CapturedTrace trace;
    make_run_take(std::chrono::milliseconds(3)); // so that few of them run in a turn
    std::unique_ptr<RawPeer> both[] = {connected_peer("left"), connected_peer("left")};
    for (auto &raw : both) {
        for (ptrdiff_t sent = 0; sent < kEach; sent++)
            ASSERT_TRUE(raw->send(run()));
        raw->close();
    }
    for (int turns = 0; turns < 8; turns++) // until they have been read
        kex_dispatch(bus);
    ptrdiff_t refused = 0;
    for (bool taken_in = false; !taken_in; refused += !taken_in) {
        auto third = connect("third");
        kex_dispatch(bus);
        taken_in = third->refusal().empty();
        // The two take turns: one may have run a call more than the other.
        const auto ran = static_cast<ptrdiff_t>(served::log.size());
        if (taken_in)
            EXPECT_LE(kEach - (ran + 1) / 2, 64);
        else
            EXPECT_GT(kEach - ran / 2, 64);
    }
    EXPECT_GT(refused, 0);
    turn_until_idle({bus});
}

TEST_F(Succession, EndingWhileNewcomersWaitLosesNothing) {
    auto old = connected_peer("old");
    while (old->send(note(1)))
        ;
    old->close();
    auto newcomer = connect("newcomer");
    ASSERT_TRUE(newcomer->send(note(2)));
    kex_dispatch(bus);
    kex_dispatch(bus);
    EXPECT_FALSE(has("note 2"));
    // The sanitizers tell what is left.
}

} // namespace

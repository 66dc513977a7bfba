// SPDX-License-Identifier: MIT
// Who runs when: peers take turns, and a turn has its time.
#include "base/limits.h"
#include "served_functions.h"
#include "support/served_bus.h"
#include "support/shifted_clock.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <memory>
#include <unistd.h>
#include <utility>

using namespace support;
using testing::ElementsAre;

namespace {

class Lanes : public ServedBus {
protected:
    Lanes() : ServedBus("busy") {}
    RawPeer &connect() {
        raws.push_back(connected_peer());
        return *raws.back();
    }
    // So many packets, of which the bus has read just enough to go on in large batches. How many are left.
    size_t flood(RawPeer &raw, const Packet &packet, size_t count) {
        for (size_t i = 0; i < count; i++)
            EXPECT_TRUE(raw.send(packet));
        kex_dispatch(bus);
        kex_dispatch(bus);
        return count - std::exchange(served::log, {}).size();
    }

    std::vector<std::unique_ptr<RawPeer>> raws;
};

TEST_F(Lanes, PeersTakeTurnsAndEachKeepsItsOrder) {
    const ClockStopped stopped; // else a turn may end after the first one
    RawPeer &first = connect();
    RawPeer &second = connect();
    for (uint32_t i = 0; i < 8; i++)
        ASSERT_TRUE(first.send(note(i)));
    for (uint32_t i = 100; i < 103; i++)
        ASSERT_TRUE(second.send(note(i)));
    turn_until_idle({bus});
    ASSERT_EQ(served::log.size(), 11u);
    EXPECT_LE(place_of("note 102"), 6) << "it does not stand behind all that the first one sent";
    EXPECT_LT(place_of("note 100"), place_of("note 101"));
    EXPECT_LT(place_of("note 101"), place_of("note 102"));
    for (uint32_t i = 1; i < 8; i++)
        EXPECT_LT(place_of("note " + std::to_string(i - 1)), place_of("note " + std::to_string(i)));
}

TEST_F(Lanes, TurnEndsWhenItsTimeIsOver) {
    constexpr std::chrono::milliseconds kFunction(5);
    make_run_take(kFunction);
    RawPeer &raw = connect();
    const size_t left = flood(raw, run(), 80);
    kex_dispatch(bus);
    EXPECT_GE(served::log.size(), 1u);
    EXPECT_LE(served::log.size(), bus::kTurnRunning / bus::kMillisecond / 5) << "the time for running";
    turn_until_idle({bus});
    EXPECT_EQ(served::log.size(), left) << "the rest follows at once";
}

TEST_F(Lanes, FunctionThatIsLongerThanATurnRunsWhole) {
    make_run_take(std::chrono::milliseconds(80));
    RawPeer &raw = connect();
    ASSERT_TRUE(raw.send(run()));
    ASSERT_TRUE(raw.send(run()));
    kex_dispatch(bus);
    EXPECT_EQ(served::log.size(), 1u);
    kex_dispatch(bus);
    EXPECT_EQ(served::log.size(), 2u);
}

TEST_F(Lanes, CallThatTakesNothingWaitsForOneCallOfEachBusyPeer) {
    constexpr size_t kBusy = 7;
    make_run_take(std::chrono::milliseconds(1));
    for (size_t i = 0; i < kBusy; i++)
        connect();
    RawPeer &light = connect();
    for (auto &raw : raws) {
        for (int i = 0; i < 100 && raw.get() != &light; i++)
            ASSERT_TRUE(raw->send(run()));
    }
    kex_dispatch(bus); // all of them are busy now
    size_t before = served::log.size();
    ASSERT_TRUE(light.send(note(1)));
    EXPECT_TRUE(turn_until({bus}, [] { return has("note 1"); }));
    EXPECT_LE(static_cast<size_t>(place_of("note 1")) - before, kBusy);
    turn_until_idle({bus});
    EXPECT_EQ(served::log.size(), 100 * kBusy + 1);
}

TEST_F(Lanes, HostsOwnTimersDoNotStandBehindPeers) {
    make_run_take(std::chrono::milliseconds(1));
    for (int i = 0; i < 4; i++)
        connect();
    for (auto &raw : raws) {
        for (int i = 0; i < 50; i++)
            ASSERT_TRUE(raw->send(run()));
    }
    kex_dispatch(bus);
    size_t before = served::log.size();
    kex_timer_t *timers[20];
    for (kex_timer_t *&timer : timers) {
        timer = kex_timer_create();
        kex_timer_setHandler(timer, [](kex_timer_t *) { served::log.push_back("timer"); });
        kex_timer_start(timer, 0);
    }
    EXPECT_TRUE(turn_until({bus}, [] { return std::count(served::log.begin(), served::log.end(), "timer") == 20; }));
    EXPECT_LE(static_cast<size_t>(place_of("timer")) - before, 4u);
    for (kex_timer_t *timer : timers)
        kex_timer_destroy(timer);
    turn_until_idle({bus});
}

// There is nothing of the host left that could come behind them.
TEST_F(Lanes, HostsOnlyTimerThatIsLongerThanATurnKeepsNoPeerWaiting) {
    RawPeer &raw = connect();
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, [](kex_timer_t *) {
        auto end = std::chrono::steady_clock::now() + std::chrono::nanoseconds(2 * bus::kTurnRunning);
        while (std::chrono::steady_clock::now() < end)
            ;
        served::log.push_back("timer");
    });
    kex_timer_start(timer, 0);
    EXPECT_TRUE(turn_until({bus}, [] { return has("timer"); }));
    ASSERT_TRUE(raw.send(note(1)));
    turn_until_idle({bus});
    EXPECT_THAT(served::log, ElementsAre("timer", "note 1"));
    kex_timer_destroy(timer);
}

TEST_F(Lanes, HostsOwnWatchesKeepNoPeerWaiting) {
    constexpr int kTurns = 10; // one to read it, one to run it, and more
    RawPeer &raw = connect();
    int ends[6][2]; // each can be read for ever, and what they do takes more than a turn
    for (auto &one : ends) {
        ASSERT_EQ(pipe2(one, O_CLOEXEC), 0);
        close(one[1]);
        ASSERT_TRUE(kex_watch(bus, one[0], nullptr, [](int, void *) {
            auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(2);
            while (std::chrono::steady_clock::now() < end)
                ;
        }));
    }
    kex_dispatch(bus);
    ASSERT_TRUE(raw.send(note(1)));
    for (int i = 0; i < kTurns; i++)
        kex_dispatch(bus);
    EXPECT_TRUE(has("note 1"));
    for (auto &one : ends) {
        kex_unwatch(bus, one[0]);
        close(one[0]);
    }
}

TEST_F(Lanes, ReadingIsSharedOutByBatches) {
    RawPeer &first = connect();
    RawPeer &second = connect();
    const size_t left = flood(first, note(0), 200);
    ASSERT_TRUE(second.send(note(1)));
    EXPECT_TRUE(turn_until({bus}, [] { return has("note 1"); }));
    EXPECT_LE(place_of("note 1"), 64 + 8) << "64 packets from one peer in a turn, eight at a time";
    turn_until_idle({bus});
    EXPECT_EQ(served::log.size(), left + 1);
}

} // namespace

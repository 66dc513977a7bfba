// SPDX-License-Identifier: MIT
// The loop: running, stopping, timers, watched descriptors, a host's own loop around it.
#include "support/bus_test.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;

namespace {

std::vector<std::string> ran;

struct SetClock {
    uint64_t now = 1000000000;
    static uint64_t read(void *self) { return static_cast<SetClock *>(self)->now; }
    void advance_ms(uint64_t milliseconds) { now += milliseconds * 1000000; }
};

class Loop : public DescriptorTest {
protected:
    Loop() {
        ran.clear();
        bus = kex_create("loop");
    }
    ~Loop() override { kex_destroy(bus); }

    bool is_readable() const {
        pollfd descriptor = {kex_pollDescriptor(bus), POLLIN, 0};
        return poll(&descriptor, 1, 0) == 1;
    }
    bool becomes_readable() const {
        pollfd descriptor = {kex_pollDescriptor(bus), POLLIN, 0};
        return poll(&descriptor, 1, 10000) == 1;
    }

    kex_t *bus;
    SetClock clock;
};

kex_t *to_stop;

TEST_F(Loop, StopBeforeRunEndsItAtOnce) {
    kex_stop(bus);
    EXPECT_EQ(kex_run(bus), 0);
    EXPECT_EQ(kex_dispatch(bus), -1);
}

TEST_F(Loop, StopFromASignalHandlerEndsRun) {
    to_stop = bus;
    struct sigaction action = {};
    action.sa_handler = [](int) { kex_stop(to_stop); };
    struct sigaction before;
    sigaction(SIGALRM, &action, &before);
    itimerval soon = {{0, 0}, {0, 30000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    EXPECT_EQ(kex_run(bus), 0);
    sigaction(SIGALRM, &before, nullptr);
}

TEST_F(Loop, TimerFiresInRun) {
    to_stop = bus;
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, [](kex_timer_t *own) {
        ran.push_back("fired");
        kex_timer_destroy(own);
        kex_stop(to_stop);
    });
    EXPECT_TRUE(kex_timer_start(timer, 20));
    EXPECT_EQ(kex_run(bus), 0);
    EXPECT_THAT(ran, ElementsAre("fired"));
}

TEST_F(Loop, TimersFireInOrderOfTimeThenOfStart) {
    kex_setClock(bus, SetClock::read, &clock);
    static std::vector<kex_timer_t *> timers;
    timers.clear();
    for (uint32_t milliseconds : {30u, 10u, 20u, 10u}) {
        kex_timer_t *timer = kex_timer_create();
        kex_timer_setHandler(timer, [](kex_timer_t *own) {
            ran.push_back(std::to_string(std::find(timers.begin(), timers.end(), own) - timers.begin()));
        });
        kex_timer_start(timer, milliseconds);
        timers.push_back(timer);
    }
    kex_dispatch(bus);
    EXPECT_THAT(ran, ElementsAre());
    clock.advance_ms(9);
    kex_dispatch(bus);
    EXPECT_THAT(ran, ElementsAre()) << "not before its time";
    clock.advance_ms(1);
    kex_dispatch(bus);
    EXPECT_THAT(ran, ElementsAre("1", "3"));
    clock.advance_ms(100);
    kex_dispatch(bus);
    EXPECT_THAT(ran, ElementsAre("1", "3", "2", "0"));
    clock.advance_ms(1000);
    kex_dispatch(bus);
    EXPECT_EQ(ran.size(), 4u) << "one shot";
    for (kex_timer_t *timer : timers)
        kex_timer_destroy(timer);
}

TEST_F(Loop, StartingAgainReArms) {
    kex_setClock(bus, SetClock::read, &clock);
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, [](kex_timer_t *) { ran.push_back("fired"); });
    kex_timer_start(timer, 10);
    clock.advance_ms(9);
    kex_timer_start(timer, 10);
    clock.advance_ms(9);
    kex_dispatch(bus);
    EXPECT_THAT(ran, ElementsAre());
    clock.advance_ms(1);
    kex_dispatch(bus);
    EXPECT_THAT(ran, ElementsAre("fired"));
    kex_timer_destroy(timer);
}

TEST_F(Loop, TimerMayStartItselfInItsHandler) {
    kex_setClock(bus, SetClock::read, &clock);
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, [](kex_timer_t *own) {
        ran.push_back("fired");
        kex_timer_start(own, 0);
    });
    kex_timer_start(timer, 0);
    EXPECT_EQ(kex_dispatch(bus), 1) << "once per turn, however short its time";
    EXPECT_EQ(kex_dispatch(bus), 1);
    EXPECT_EQ(ran.size(), 2u);
    kex_timer_destroy(timer);
    EXPECT_EQ(kex_dispatch(bus), 0);
}

TEST_F(Loop, TimerDestroyedByAnotherOfTheSameTurnDoesNotFire) {
    kex_setClock(bus, SetClock::read, &clock);
    static kex_timer_t *second;
    kex_timer_t *first = kex_timer_create();
    second = kex_timer_create();
    kex_timer_setHandler(first, [](kex_timer_t *) {
        ran.push_back("first");
        kex_timer_destroy(second);
    });
    kex_timer_setHandler(second, [](kex_timer_t *) { ran.push_back("second"); });
    kex_timer_start(first, 1);
    kex_timer_start(second, 1);
    clock.advance_ms(1);
    kex_dispatch(bus);
    kex_dispatch(bus);
    EXPECT_THAT(ran, ElementsAre("first"));
    kex_timer_destroy(first);
}

TEST_F(Loop, TimerThatIsDueAtTheClocksBeginningFires) {
    clock.now = 0;
    kex_setClock(bus, SetClock::read, &clock);
    kex_timer_t *timers[2];
    for (kex_timer_t *&timer : timers) {
        timer = kex_timer_create();
        kex_timer_setHandler(timer, [](kex_timer_t *) { ran.push_back("fired"); });
    }
    kex_timer_start(timers[0], 0);
    kex_timer_start(timers[1], 1000);
    clock.advance_ms(1000);
    turn_until_idle({bus}); // a turn may end after the first one
    EXPECT_THAT(ran, ElementsAre("fired", "fired"));
    for (kex_timer_t *timer : timers)
        kex_timer_destroy(timer);
}

TEST_F(Loop, TimersNobodyDestroysGoWithTheBus) {
    kex_timer_start(kex_timer_create(), 100000);
    kex_timer_create();
    kex_timer_t *queued = kex_timer_create();
    kex_timer_start(queued, 0); // the leak checker sees the rest
}

TEST_F(Loop, TimerBelongsToTheBusThatDispatchesElseToTheFirst) {
    kex_t *second_bus = kex_create("second");
    static kex_timer_t *made_inside;
    made_inside = nullptr;
    int pipe_ends[2];
    ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC), 0);
    ASSERT_EQ(write(pipe_ends[1], "x", 1), 1);
    kex_watch(second_bus, pipe_ends[0], second_bus, [](int fd, void *own_bus) {
        kex_unwatch(static_cast<kex_t *>(own_bus), fd);
        made_inside = kex_timer_create();
        kex_timer_setHandler(made_inside, [](kex_timer_t *own) {
            ran.push_back("inside");
            kex_timer_destroy(own);
        });
        kex_timer_start(made_inside, 0);
    });
    kex_dispatch(second_bus);
    EXPECT_EQ(kex_dispatch(bus), 0) << "not the first bus's";
    EXPECT_EQ(kex_dispatch(second_bus), 1);
    EXPECT_THAT(ran, ElementsAre("inside"));
    kex_destroy(second_bus);
    close(pipe_ends[0]);
    close(pipe_ends[1]);
}

TEST_F(Loop, TurnOfAnotherBusInAHandlerLeavesTimersToTheHandlersOwn) {
    struct Buses {
        kex_t *second, *third;
    } buses = {kex_create("second"), kex_create("third")};
    int pipe_ends[2];
    ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC), 0);
    ASSERT_EQ(write(pipe_ends[1], "x", 1), 1);
    kex_watch(buses.second, pipe_ends[0], &buses, [](int fd, void *both) {
        kex_unwatch(static_cast<Buses *>(both)->second, fd);
        kex_dispatch(static_cast<Buses *>(both)->third);
        kex_timer_start(kex_timer_create(), 0);
    });
    kex_dispatch(buses.second);
    EXPECT_EQ(kex_dispatch(bus), 0) << "not the first bus's";
    EXPECT_EQ(kex_dispatch(buses.second), 1);
    kex_destroy(buses.third);
    kex_destroy(buses.second);
    close(pipe_ends[0]);
    close(pipe_ends[1]);
}

TEST_F(Loop, TimeFactorMakesTimersFast) {
    setenv("KEX_TIME_FACTOR", "1000", 1);
    kex_t *fast = kex_create("fast");
    unsetenv("KEX_TIME_FACTOR");
    kex_setClock(fast, SetClock::read, &clock);
    // Made while the fast bus dispatches, so that it belongs to it.
    int pipe_ends[2];
    ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC), 0);
    close(pipe_ends[1]);
    kex_watch(fast, pipe_ends[0], fast, [](int fd, void *own_bus) {
        kex_unwatch(static_cast<kex_t *>(own_bus), fd);
        kex_timer_t *timer = kex_timer_create();
        kex_timer_setHandler(timer, [](kex_timer_t *own) {
            ran.push_back("fired");
            kex_timer_destroy(own);
        });
        kex_timer_start(timer, 10000);
    });
    kex_dispatch(fast);
    clock.advance_ms(9);
    kex_dispatch(fast);
    EXPECT_THAT(ran, ElementsAre());
    clock.advance_ms(1);
    kex_dispatch(fast);
    EXPECT_THAT(ran, ElementsAre("fired"));
    kex_destroy(fast);
    close(pipe_ends[0]);
}

TEST_F(Loop, TimeFactorThatIsNoneIsTracedAndPassedOver) {
    for (const char *value : {"0", "-1", "x", "2x", "1000001", "99999999999999999999"}) {
        CapturedTrace trace;
        setenv("KEX_TIME_FACTOR", value, 1);
        kex_destroy(kex_create("slow"));
        unsetenv("KEX_TIME_FACTOR");
        EXPECT_THAT(trace.text(), testing::HasSubstr("KEX_TIME_FACTOR is not a number from 1 to 1000000")) << value;
    }
}

TEST_F(Loop, PollDescriptorIsReadableWhenATimerIsDue) {
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, [](kex_timer_t *) { ran.push_back("fired"); });
    EXPECT_FALSE(is_readable());
    kex_timer_start(timer, 5);
    EXPECT_TRUE(becomes_readable());
    while (ran.empty())
        kex_dispatch(bus);
    EXPECT_FALSE(is_readable()) << "nothing is left to do";
    kex_timer_destroy(timer);
}

TEST_F(Loop, PollDescriptorFollowsAReplacedClockToo) {
    kex_setClock(bus, SetClock::read, &clock);
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, [](kex_timer_t *) { ran.push_back("fired"); });
    kex_timer_start(timer, 1000);
    clock.advance_ms(1000);
    while (ran.empty()) {
        ASSERT_TRUE(becomes_readable());
        kex_dispatch(bus);
    }
    kex_timer_destroy(timer);
}

TEST_F(Loop, WatchRunsWhileItCanBeRead) {
    int pipe_ends[2];
    ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC | O_NONBLOCK), 0);
    auto log_byte = [](int fd, void *prefix) {
        char byte = 0;
        ssize_t length = read(fd, &byte, 1);
        ran.push_back(static_cast<const char *>(prefix) + (length == 1 ? std::string(1, byte) : std::string("end")));
    };
    EXPECT_TRUE(kex_watch(bus, pipe_ends[0], const_cast<char *>("old "), log_byte));
    EXPECT_TRUE(kex_watch(bus, pipe_ends[0], const_cast<char *>("new "), log_byte)) << "replaces the first";
    EXPECT_EQ(kex_dispatch(bus), 0);
    ASSERT_EQ(write(pipe_ends[1], "ab", 2), 2);
    EXPECT_TRUE(is_readable());
    kex_dispatch(bus);
    kex_dispatch(bus);
    EXPECT_EQ(kex_dispatch(bus), 0);
    close(pipe_ends[1]);
    kex_dispatch(bus);
    EXPECT_THAT(ran, ElementsAre("new a", "new b", "new end")) << "a hang-up is to be read too";
    EXPECT_TRUE(kex_unwatch(bus, pipe_ends[0]));
    EXPECT_FALSE(kex_unwatch(bus, pipe_ends[0]));
    EXPECT_EQ(kex_dispatch(bus), 0);
    close(pipe_ends[0]);
}

TEST_F(Loop, WatchOfAPlainFileIsAlwaysReady) {
    int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_TRUE(kex_watch(bus, fd, bus, [](int own, void *own_bus) {
        ran.push_back("end of file");
        kex_unwatch(static_cast<kex_t *>(own_bus), own);
    }));
    EXPECT_TRUE(becomes_readable());
    kex_dispatch(bus);
    EXPECT_THAT(ran, ElementsAre("end of file"));
    kex_dispatch(bus);
    EXPECT_FALSE(is_readable());
    close(fd);
}

// The kernel's timer stays as it was set while there is work: a turn looks for what has become due by itself.
TEST_F(Loop, TimerFiresAmongTurnsThatAlwaysHaveWork) {
    static kex_timer_t *soon;
    kex_timer_t *far = kex_timer_create();
    kex_timer_start(far, 3600000);
    int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    soon = kex_timer_create();
    kex_timer_setHandler(soon, [](kex_timer_t *) { ran.push_back("fired"); });
    EXPECT_TRUE(kex_watch(bus, fd, nullptr, [](int, void *) {
        if (soon != nullptr)
            kex_timer_start(soon, 5);
        soon = nullptr;
    }));
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (ran.empty() && std::chrono::steady_clock::now() < end)
        kex_dispatch(bus);
    EXPECT_THAT(ran, ElementsAre("fired"));
    kex_unwatch(bus, fd);
    close(fd);
}

// Far ahead of the machine's own one, as the time of day is.
TEST_F(Loop, TimerFiresByAClockThatIsAhead) {
    clock.now = uint64_t{1} << 62;
    kex_setClock(bus, SetClock::read, &clock);
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, [](kex_timer_t *) { ran.push_back("fired"); });
    kex_timer_start(timer, 1000);
    turn_until_idle({bus});
    EXPECT_THAT(ran, ElementsAre());
    clock.advance_ms(1000);
    turn_until_idle({bus});
    EXPECT_THAT(ran, ElementsAre("fired"));
}

TEST_F(Loop, WatchEndedByAnotherOfTheSameTurnDoesNotRun) {
    static int pipes[2][2];
    ASSERT_EQ(pipe2(pipes[0], O_CLOEXEC), 0);
    ASSERT_EQ(pipe2(pipes[1], O_CLOEXEC), 0);
    auto end_the_other = [](int fd, void *own_bus) {
        ran.push_back("ran");
        kex_unwatch(static_cast<kex_t *>(own_bus), fd == pipes[0][0] ? pipes[1][0] : pipes[0][0]);
    };
    for (auto &one : pipes) {
        ASSERT_EQ(write(one[1], "x", 1), 1);
        kex_watch(bus, one[0], bus, end_the_other);
    }
    kex_dispatch(bus);
    EXPECT_EQ(ran.size(), 1u);
    for (auto &one : pipes) {
        kex_unwatch(bus, one[0]);
        close(one[0]);
        close(one[1]);
    }
}

TEST_F(Loop, DispatchInsideAHandlerDoesNothing) {
    kex_timer_t *timer = kex_timer_create();
    to_stop = bus;
    kex_timer_setHandler(timer, [](kex_timer_t *) {
        EXPECT_EQ(kex_dispatch(to_stop), 0);
        EXPECT_EQ(kex_run(to_stop), -1);
        ran.push_back("fired");
    });
    kex_timer_start(timer, 0);
    kex_dispatch(bus);
    EXPECT_THAT(ran, ElementsAre("fired"));
    kex_timer_destroy(timer);
}

TEST_F(Loop, NullHandlesAreAnswered) {
    kex_destroy(nullptr);
    EXPECT_EQ(kex_connection(nullptr), nullptr);
    EXPECT_EQ(kex_run(nullptr), -1);
    kex_stop(nullptr);
    EXPECT_EQ(kex_pollDescriptor(nullptr), -1);
    EXPECT_EQ(kex_dispatch(nullptr), 0);
    EXPECT_FALSE(kex_watch(nullptr, 0, nullptr, [](int, void *) {}));
    EXPECT_FALSE(kex_watch(bus, -1, nullptr, [](int, void *) {}));
    EXPECT_FALSE(kex_watch(bus, 0, nullptr, nullptr));
    EXPECT_FALSE(kex_unwatch(nullptr, 0));
    kex_setClock(nullptr, nullptr, nullptr);
    kex_timer_setHandler(nullptr, nullptr);
    EXPECT_FALSE(kex_timer_start(nullptr, 1));
    kex_timer_destroy(nullptr);
    kex_t *nameless = kex_create(nullptr);
    EXPECT_NE(nameless, nullptr);
    kex_destroy(nameless);
}

TEST(LoopWithoutABus, NoTimerCanBeMade) {
    EXPECT_EQ(kex_timer_create(), nullptr);
}

TEST_F(Loop, TimeFactorThatIsEmptyIsNone) {
    CapturedTrace trace;
    setenv("KEX_TIME_FACTOR", "", 1);
    kex_destroy(kex_create("own"));
    unsetenv("KEX_TIME_FACTOR");
    EXPECT_EQ(trace.text(), "");
}

TEST_F(Loop, StopEndsATurn) {
    to_stop = bus;
    kex_timer_t *timers[] = {kex_timer_create(), kex_timer_create()};
    for (kex_timer_t *timer : timers) {
        kex_timer_setHandler(timer, [](kex_timer_t *) {
            ran.push_back("fired");
            kex_stop(to_stop);
        });
        kex_timer_start(timer, 0);
    }
    EXPECT_EQ(kex_dispatch(bus), -1);
    EXPECT_THAT(ran, ElementsAre("fired"));
}

TEST_F(Loop, StopFromAnotherThreadWakesRun) {
    std::thread other([this] {
        usleep(20000);
        kex_stop(bus);
    });
    EXPECT_EQ(kex_run(bus), 0);
    other.join();
}

TEST_F(Loop, WatchOfWhatIsNoDescriptorIsNone) {
    int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(fd);
    EXPECT_FALSE(kex_watch(bus, fd, nullptr, [](int, void *) {}));
    EXPECT_FALSE(kex_unwatch(bus, fd));
}

TEST_F(Loop, WatchThatIsAlwaysReadyWakesNoOther) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_TRUE(kex_watch(bus, ends[0], nullptr, [](int, void *) { ran.push_back("pipe"); }));
    EXPECT_TRUE(kex_watch(bus, fd, nullptr, [](int, void *) { ran.push_back("file"); }));
    kex_dispatch(bus);
    EXPECT_THAT(ran, ElementsAre("file"));
    kex_unwatch(bus, fd);
    kex_unwatch(bus, ends[0]);
    for (int one : {fd, ends[0], ends[1]})
        close(one);
}

} // namespace

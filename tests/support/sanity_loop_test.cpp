// SPDX-License-Identifier: MIT
// A host's loop: its timers, its watches, its turns and its end.
#include "sanity_fixture.h"

#include <cerrno>
#include <poll.h>

namespace sanity {
namespace {

std::vector<uint64_t> fired;

void on_timer(kex_timer_t *timer) {
    fired.push_back(bus().now());
    if (fired.size() < 3)
        kex_timer_start(timer, 10000);
    else
        kex_timer_destroy(timer);
}

TEST_F(Harness, TimersFireByTheVirtualClock) {
    fired.clear();
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, on_timer);
    kex_timer_start(timer, 0);
    EXPECT_TRUE(fired.empty()) << "never inside the caller";
    bus().advance(15000);
    EXPECT_THAT(fired, ElementsAre(0u, 10000u));
    EXPECT_EQ(bus().timers_armed(), 1u);
    bus().advance(15000);
    EXPECT_THAT(fired, ElementsAre(0u, 10000u, 20000u));
    EXPECT_EQ(bus().timers_armed(), 0u);
    EXPECT_EQ(bus().live().timers, 0u);
}

uint64_t hosts_clock(void *userdata) {
    return *static_cast<uint64_t *>(userdata);
}

TEST_F(Harness, TimersFollowTheHostsClock) {
    fired.clear();
    uint64_t nanoseconds = 5000000000;
    kex_setClock(bus().handle(), hosts_clock, &nanoseconds);
    EXPECT_EQ(bus().now(), 5000u);
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, on_timer);
    kex_timer_start(timer, 100);
    nanoseconds += 99000000;
    EXPECT_EQ(kex_dispatch(bus().handle()), 0);
    nanoseconds += 1000000;
    EXPECT_EQ(kex_dispatch(bus().handle()), 1);
    EXPECT_THAT(fired, ElementsAre(5100u));
    bus().advance(1);
    bus().run_for(1);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("advance() while"), HasSubstr("run_for() while")));
}

void counts(int, void *userdata) {
    ++*static_cast<int *>(userdata);
}

void reads(int fd, void *userdata) {
    char byte = 0;
    EXPECT_EQ(read(fd, &byte, 1), 1);
    counts(fd, userdata);
}

void ends_its_watch(int fd, void *userdata) {
    counts(fd, userdata);
    EXPECT_TRUE(kex_unwatch(bus().handle(), fd));
}

TEST_F(Harness, TheHostsCallsAreLinesToo) {
    const char *const rows[] = {"EndPoint", "signal", "signal", "", "init", nullptr};
    kex_t *made = kex_create("tel");
    kex_declareFunctions(made, rows, 2, 3);
    kex_declareObject(made, "tel", nullptr);
    kex_declareTemplate(made, "tel.EndPoint", "EndPoint");
    kex_onPeerClosed(made, nullptr, nullptr);
    EXPECT_TRUE(kex_reserve(made, 7, 2));
    kex_setClock(made, nullptr, nullptr);
    bus().name_function(reinterpret_cast<const void *>(counts), "counts");
    int count = 0;
    kex_watch(made, STDERR_FILENO, &count, counts);
    kex_unwatch(made, STDERR_FILENO);
    kex_unwatch(made, STDERR_FILENO);
    kex_stop(made);
    kex_destroy(made);
    EXPECT_LOG("kex_create(\"tel\") = bus", "kex_declareFunctions(bus, 2 rows of 3) = 1",
               "kex_declareObject(bus, \"tel\", null) = <tel>",
               "kex_declareTemplate(bus, \"tel.EndPoint\", \"EndPoint\") = <tel.EndPoint>",
               "kex_onPeerClosed(bus, null, null)", "kex_reserve(bus, 7, 2)", "kex_setClock(bus, null, null)",
               "kex_watch(bus, 2, data, counts) = 1", "kex_unwatch(bus, 2) = 1", "kex_unwatch(bus, 2) = 0",
               "kex_stop(bus)", "kex_destroy(bus)");
}

TEST_F(Harness, AWatchRunsWhenItsDescriptorCanBeRead) {
    const Pipe &one = shared_pipe();
    int count = 0;
    EXPECT_TRUE(kex_watch(bus().handle(), one.ends[0], &count, reads));
    EXPECT_EQ(bus().turn(), 0);
    one.fill();
    one.fill();
    EXPECT_EQ(count, 0) << "only in a turn";
    EXPECT_EQ(bus().turn(), 1);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(kex_dispatch(bus().handle()), 1);
    EXPECT_EQ(kex_dispatch(bus().handle()), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(bus().live().watches, 1u);
    EXPECT_TRUE(kex_unwatch(bus().handle(), one.ends[0]));
    one.fill();
    EXPECT_EQ(bus().turn(), 0);
    EXPECT_EQ(bus().live().watches, 0u);
}

TEST_F(Harness, AWatchRunsOnceWhenTheTestSaysSo) {
    const Pipe &one = shared_pipe();
    int count = 0;
    kex_watch(bus().handle(), one.ends[0], &count, counts);
    bus().watch_ready(one.ends[0]);
    EXPECT_EQ(bus().turn(), 1);
    EXPECT_EQ(bus().turn(), 0);
    EXPECT_EQ(count, 1);
    kex_watch(bus().handle(), one.ends[0], &count, ends_its_watch);
    bus().watch_ready(one.ends[0]);
    EXPECT_EQ(bus().turn(), 1);
    EXPECT_FALSE(bus().is_watched(one.ends[0]));
    bus().watch_ready(one.ends[0]);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("nobody watches it")));
}

TEST_F(Harness, AWatchedDescriptorThatIsClosedIsNoticed) {
    int count = 0, closed = -1;
    {
        const Pipe one;
        closed = one.ends[0];
        kex_watch(bus().handle(), closed, &count, counts);
        EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("2 descriptors more")));
        EXPECT_THAT(bus().check(), IsEmpty());
    }
    EXPECT_THAT(bus().check(),
                ElementsAre(fake::text("descriptor %d is watched, but closed", closed), HasSubstr("-2")));
    kex_unwatch(bus().handle(), closed);
}

TEST_F(Harness, BadWatchesAreRejected) {
    EXPECT_FALSE(kex_watch(bus().handle(), -1, nullptr, counts));
    EXPECT_FALSE(kex_watch(bus().handle(), STDERR_FILENO, nullptr, nullptr));
    EXPECT_FALSE(kex_watch(nullptr, STDERR_FILENO, nullptr, counts));
    EXPECT_FALSE(kex_unwatch(nullptr, STDERR_FILENO));
    bus().fail("kex_watch");
    EXPECT_FALSE(kex_watch(bus().handle(), STDERR_FILENO, nullptr, counts));
}

TEST_F(Harness, RunEndsWithAStopAtItsVirtualTime) {
    fired.clear();
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, on_timer);
    kex_timer_start(timer, 500);
    kex_stop(nullptr);
    bus().at(2000, [] { bus().note("at 2 s"); });
    bus().at(12000, [] { kex_stop(bus().handle()); });
    EXPECT_EQ(kex_run(bus().handle()), 0);
    EXPECT_EQ(bus().now(), 12000u);
    EXPECT_THAT(fired, ElementsAre(500u, 10500u));
    EXPECT_TRUE(bus().is_stopped());
    EXPECT_EQ(kex_dispatch(bus().handle()), -1);
    EXPECT_EQ(bus().turn(), -1);
}

TEST_F(Harness, ARunThatCannotEndIsNoticed) {
    EXPECT_EQ(kex_run(bus().handle()), -1);
    EXPECT_EQ(errno, EDEADLK);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("nothing is left that could happen")));
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, [](kex_timer_t *again) { kex_timer_start(again, 60000); });
    kex_timer_start(timer, 0);
    EXPECT_EQ(kex_run(bus().handle()), -1);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("nobody called kex_stop() for an hour")));
}

TEST_F(Harness, ALoopThatDoesNotComeToRestIsNoticed) {
    const Pipe &one = shared_pipe();
    one.fill();
    int count = 0;
    kex_watch(bus().handle(), one.ends[0], &count, counts);
    bus().run_for(0);
    kex_unwatch(bus().handle(), one.ends[0]);
    EXPECT_GT(count, 1);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("does not come to rest at 0 ms")));
}

TEST_F(Harness, RunForTurnsAtEachTimeThatIsDue) {
    const Pipe &one = shared_pipe();
    int count = 0;
    kex_watch(bus().handle(), one.ends[0], &count, reads);
    bus().at(20, [&] { one.fill(); });
    bus().at(40, [&] { one.fill(); });
    bus().run_for(30);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(bus().now(), 30u);
    bus().run_for(10);
    EXPECT_EQ(count, 2);
    kex_unwatch(bus().handle(), one.ends[0]);
}

TEST_F(Harness, WhatIsPostedInATurnWaitsForTheNext) {
    bus().post([] { bus().post([] { bus().note("second"); }); });
    EXPECT_EQ(bus().turn(), 1);
    EXPECT_LOG();
    EXPECT_EQ(bus().turn(), 1);
    EXPECT_LOG("second");
    bus().post([] { EXPECT_EQ(kex_dispatch(bus().handle()), 0) << "a turn is no place for another"; });
    EXPECT_EQ(bus().turn(), 1);
}

TEST_F(Harness, ThePollDescriptorIsReadableWhileThereIsWork) {
    const Pipe &one = shared_pipe();
    int count = 0;
    kex_watch(bus().handle(), one.ends[0], &count, reads);
    pollfd entry = {kex_pollDescriptor(bus().handle()), POLLIN, 0};
    const auto readable = [&] { return poll(&entry, 1, 0) == 1; };
    EXPECT_FALSE(readable());
    one.fill();
    EXPECT_TRUE(readable());
    EXPECT_EQ(kex_dispatch(bus().handle()), 1);
    EXPECT_FALSE(readable());
    kex_timer_t *timer = kex_timer_create();
    kex_timer_start(timer, 10);
    EXPECT_FALSE(readable());
    bus().post([] {});
    EXPECT_TRUE(readable());
    EXPECT_EQ(kex_dispatch(bus().handle()), 1);
    EXPECT_FALSE(readable());
    kex_stop(bus().handle());
    EXPECT_TRUE(readable());
    EXPECT_EQ(kex_dispatch(bus().handle()), -1);
    kex_timer_destroy(timer);
    kex_unwatch(bus().handle(), one.ends[0]);
}

} // namespace
} // namespace sanity

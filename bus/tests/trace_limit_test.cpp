// SPDX-License-Identifier: MIT
// Errors and warnings that other processes cause: ten in a second of each, fifty of all, then a count.
#include "base/trace.h"
#include "base/trace_limit.h"
#include "served_functions.h"
#include "support/bus_test.h"
#include "support/raw_peer.h"
#include "support/shifted_clock.h"
#include "ziltrace.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <poll.h>
#include <unistd.h>

using namespace support;
using testing::HasSubstr;
using testing::Not;

namespace {

size_t lines_in(const std::string &text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

class TraceLimit : public TwoBuses {
protected:
    TraceLimit() {
        served::reset();
        served::declare(server);
        bus::trace_configure();
    }
    ~TraceLimit() override {
        unsetenv("ZIL_TRACE_LEVEL");
        bus::trace_configure();
        served::reset();
    }
    // One that is refused, with one message.
    void visit() {
        RawPeer raw(socket);
        raw.send("rubbish");
        turn_until_idle();
    }
    void complain(size_t times) {
        served::probe = [times](function_call_t *call, argument_list_t *, variant_t *) {
            for (size_t i = 0; i < times; i++)
                zilTrace(i % 2 == 0 ? 100 : 200, "complaint %zu", i);
            fcall_destroy(call);
            return 0;
        };
        request_destroy(call("Probe", "run"));
    }
};

TEST_F(TraceLimit, ConnectionsThatAreRefusedAreToldTenTimesInASecond) {
    CapturedTrace trace;
    for (int i = 0; i < 100; i++)
        visit();
    EXPECT_GE(lines_in(trace.text()), 10u);
    EXPECT_LE(lines_in(trace.text()), 60u) << "more only when the machine took seconds";
    EXPECT_THAT(trace.text(), HasSubstr("refused: this is no packet of the bus"));
}

TEST_F(TraceLimit, WhatAPeersCallMakesTheHostSayIsLimitedAndCounted) {
    CapturedTrace trace;
    complain(1000);
    const std::string first = trace.text();
    EXPECT_EQ(lines_in(first), 10u);
    EXPECT_THAT(first, HasSubstr("complaint 9\n"));
    EXPECT_TRUE(turn_until([&] { return trace.text().size() > first.size(); })) << "without another message";
    EXPECT_EQ(trace.text().substr(first.size()),
              "KEX     - [!]990 more errors and warnings because of process " + std::to_string(getpid()) + "\n");
}

TEST_F(TraceLimit, CountIsToldBeforeTheNextMessageToo) {
    CapturedTrace trace;
    complain(11);
    usleep(1100000);
    complain(1);
    EXPECT_THAT(trace.text(),
                testing::EndsWith("complaint 9\nKEX     - [!]1 more errors and warnings because of process " +
                                  std::to_string(getpid()) + "\ncomplaint 0\n"));
}

TEST_F(TraceLimit, WhatNobodyElseCausesIsNotLimited) {
    CapturedTrace trace;
    for (int i = 0; i < 100; i++)
        zilTrace(100, "own");
    EXPECT_EQ(lines_in(trace.text()), 100u);
}

TEST_F(TraceLimit, WhoeverAsksForNoticesSeesAll) {
    setenv("ZIL_TRACE_LEVEL", "300", 1);
    bus::trace_configure();
    CapturedTrace trace;
    complain(1000);
    EXPECT_THAT(trace.text(), HasSubstr("complaint 999\n"));
    EXPECT_THAT(trace.text(), Not(HasSubstr("more errors")));
}

TEST_F(TraceLimit, NoticesOfAZoneThatIsAskedForLiftItToo) {
    setenv("ZIL_TRACE_ZONES", "LIBV=400", 1);
    bus::trace_configure();
    unsetenv("ZIL_TRACE_ZONES");
    CapturedTrace trace;
    complain(100);
    EXPECT_EQ(lines_in(trace.text()), 100u);
}

TEST_F(TraceLimit, OneProcessDoesNotHideAnother) {
    CapturedTrace trace;
    for (int i = 0; i < 100; i++)
        bus::note_about(1001, ZIL_TRACE_ERROR, "loud");
    bus::note_about(1002, ZIL_TRACE_ERROR, "quiet");
    EXPECT_EQ(lines_in(trace.text()), 11u);
    EXPECT_THAT(trace.text(), HasSubstr("quiet"));
}

TEST_F(TraceLimit, ManyProcessesTogetherHaveFifty) {
    CapturedTrace trace;
    for (int32_t process = 1; process <= 1000; process++)
        bus::note_about(process, ZIL_TRACE_ERROR, "one each");
    EXPECT_EQ(lines_in(trace.text()), 50u);
    EXPECT_TRUE(turn_until([&] { return lines_in(trace.text()) > 50; }));
    turn_until_idle();
    EXPECT_LE(lines_in(trace.text()), 50u + 17u);
    EXPECT_THAT(trace.text(), HasSubstr(" more errors and warnings because of other processes\n"));
}

TEST_F(TraceLimit, CauseEndsWithTheFunction) {
    complain(0);
    EXPECT_EQ(bus::trace_set_cause(bus::kNobody), bus::kNobody);
}

class TraceRows : public testing::Test {
protected:
    TraceRows() {
        bus::trace_limit_begin();
        bus::trace_limit_tell(remember);
        told.clear();
    }
    ~TraceRows() override { bus::trace_limit_begin(); }

    static void remember(uint32_t more, int32_t process) { told[process] += more; }
    // How many of so many messages of a process pass.
    static uint32_t passed(int32_t process, uint32_t count) {
        const bus::TraceCause cause(process);
        uint32_t passed = 0;
        for (uint32_t i = 0; i < count; i++)
            passed += bus::trace_limit_passes(remember);
        return passed;
    }
    static constexpr uint64_t kSecond = 1000000000;
    static inline std::map<int32_t, uint32_t> told;
};

// Sixteen are kept apart; the next one takes the place of who has least to be told.
TEST_F(TraceRows, ProcessOfWhichLeastHasToBeToldLosesItsPlace) {
    EXPECT_EQ(passed(1, 13), 10u);
    EXPECT_EQ(passed(2, 12), 10u);
    for (int32_t process = 3; process <= 16; process++)
        passed(process, process == 9 ? 1 : 20);
    passed(17, 1); // in place of process 9
    EXPECT_EQ(passed(18, 20), 0u) << "fifty have been told of all";
    clock_advance(kSecond);
    bus::trace_limit_tell(remember);
    EXPECT_EQ(told[1], 3u);
    EXPECT_EQ(told[2], 2u);
    EXPECT_EQ(told.count(9), 0u);
    EXPECT_EQ(told.count(17) + told.count(18), 1u) << "one of the two lost its place, with what it had to tell";
    EXPECT_EQ(bus::trace_limit_due(), 0u);
}

TEST_F(TraceRows, PlaceWhosePeriodIsOverIsTakenFirst) {
    EXPECT_EQ(passed(1, 1), 1u);
    clock_advance(kSecond / 2);
    for (int32_t process = 2; process <= 16; process++)
        EXPECT_EQ(passed(process, 1), 1u);
    clock_advance(kSecond / 2); // the first period is over
    EXPECT_EQ(passed(17, 1), 1u);
    EXPECT_EQ(passed(2, 10), 9u) << "the others are still remembered";
}

TEST_F(TraceRows, CountOfAllWaitsForItsOwnPeriod) {
    for (int32_t process = 1; process <= 16; process++)
        passed(process, 11);
    clock_advance(kSecond / 2);
    passed(17, 11); // takes a place with a count of one, which goes to that of all
    clock_advance(kSecond / 2);
    bus::trace_limit_tell(remember);
    EXPECT_GT(told[1] + told[2] + told[0], 0u);
    clock_advance(kSecond);
    bus::trace_limit_tell(remember);
    uint32_t sum = 0;
    for (auto [process, more] : told)
        sum += more;
    EXPECT_EQ(sum, 16 * 11 + 11 - 50u) << "each that was not told is counted once";
}

TEST_F(TraceRows, CountThatIsDueFirstIsWaitedFor) {
    passed(1, 11);
    clock_advance(kSecond / 2);
    passed(2, 11);
    const uint64_t due = bus::trace_limit_due();
    clock_advance(kSecond / 2);
    passed(1, 11); // its next period
    EXPECT_EQ(told[1], 1u);
    EXPECT_GT(bus::trace_limit_due(), due);
    EXPECT_LE(bus::trace_limit_due(), due + kSecond / 2 + kSecond / 4) << "that of the second one";
}

TEST_F(TraceRows, CountOfOneIsToldBeforeThatOfAll) {
    passed(1, 1);
    clock_advance(6 * kSecond / 10);
    passed(2, 20);
    clock_advance(4 * kSecond / 10);
    for (int32_t process = 3; process <= 19; process++)
        passed(process, 11); // more than can be kept apart
    clock_advance(6 * kSecond / 10);
    bus::trace_limit_tell(remember);
    EXPECT_EQ(told[2], 10u);
    EXPECT_EQ(told.count(0), 0u);
    clock_advance(kSecond);
    bus::trace_limit_tell(remember);
    EXPECT_EQ(told.count(0), 1u);
}

} // namespace

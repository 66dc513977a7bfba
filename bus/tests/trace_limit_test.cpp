// SPDX-License-Identifier: MIT
// Errors and warnings that other processes cause: ten in a second of each, fifty of all, then a count.
#include "base/trace.h"
#include "base/trace_limit.h"
#include "served_functions.h"
#include "support/bus_test.h"
#include "support/raw_peer.h"
#include "ziltrace.h"

#include <algorithm>
#include <cstdlib>
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

} // namespace

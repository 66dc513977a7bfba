// SPDX-License-Identifier: MIT
// A wait shows: to the trace, and to whom it waits for.
#include "wait_fixture.h"
#include <unistd.h>

using namespace support;
using testing::HasSubstr;

namespace {

TEST_F(Wait, ShowsAfterTwoSecondsAndEveryTen) {
    CapturedTrace trace;
    RunningClock clock;
    kex_setClock(server, RunningClock::read, &clock);
    timeval limit = kSeconds(25);
    EXPECT_FALSE(kex_waitForReply(server, request, &limit));
    kex_setClock(server, nullptr, nullptr);
    EXPECT_THAT(trace.text(), HasSubstr("KEX     - [!]waiting for 'plugin' (process " + std::to_string(getpid()) +
                                        ") to answer 'slow' of 'Theirs' for 2 s\n"));
    EXPECT_THAT(trace.text(), HasSubstr("for 12 s\n"));
    EXPECT_THAT(trace.text(), HasSubstr("for 22 s\n"));
    size_t lines = 0;
    for (char c : trace.text())
        lines += c == '\n';
    EXPECT_EQ(lines, 3u) << trace.text();
}

TEST_F(Wait, TellsTheOtherSide) {
    CapturedTrace trace;
    RunningClock clock;
    kex_setClock(server, RunningClock::read, &clock);
    timeval limit = kSeconds(5);
    EXPECT_FALSE(kex_waitForReply(server, request, &limit));
    kex_setClock(server, nullptr, nullptr);
    auto packets = raw.receive_all();
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(kind_of(packets[0]), kWaiting);
    EXPECT_EQ(serial_of(packets[0]), serial);
}

TEST_F(Wait, TwoThatWaitForEachOtherAreTraced) {
    CapturedTrace trace;
    raw.send(support::call(77, "Probe", "run"));
    raw.send(Packet(kWaiting, 77));
    raw.send(reply());
    EXPECT_TRUE(kex_waitForReply(server, request, nullptr));
    EXPECT_THAT(trace.text(), HasSubstr("wait for each other: we for 'slow' of 'Theirs', they for 'run' of 'Probe'"));
}

TEST_F(Wait, NoticeThatCameBeforeTheWaitIsTracedWhenTheWaitBegins) {
    CapturedTrace trace;
    served::probe = [&](function_call_t *call, argument_list_t *, variant_t *) {
        // The caller has long said that it waits for us; now we wait for it.
        raw.send(Packet(kWaiting, 77));
        request_t *first = request_create_executeFunction("Theirs", "first", 0);
        EXPECT_TRUE(kex_sendRequest(server, plugin, first));
        timeval none = kSeconds(0);
        kex_waitForReply(server, first, &none);
        kex_waitForReply(server, request, &none);
        request_destroy(first);
        fcall_destroy(call);
        return 0;
    };
    raw.send(support::call(77, "Probe", "run"));
    turn_until_idle();
    EXPECT_THAT(trace.text(), HasSubstr("we for 'first' of 'Theirs', they for 'run' of 'Probe'"));
    EXPECT_THAT(trace.text(), HasSubstr("we for 'slow' of 'Theirs', they for 'run' of 'Probe'"));
}

// Two of its calls lie here; it waits for the later one, while the earlier one waits for it.
TEST_F(Wait, TheCallThatThePeerWaitsForIsNamed) {
    served::probe = [&](function_call_t *call, argument_list_t *, variant_t *) {
        const timeval limit = {0, 1};
        kex_waitForReply(server, request, &limit);
        fcall_destroy(call);
        return 0;
    };
    CapturedTrace trace;
    raw.send(Packet(kCall, 20).text("Probe").text("run").byte(0));
    raw.send(Packet(kCall, 21).text("Probe").text("echo").byte(0));
    raw.send(Packet(kCall, 22).text("Probe").text("note").byte(0));
    raw.send(Packet(kWaiting, 22));
    turn_until_idle();
    EXPECT_THAT(trace.text(), HasSubstr("wait for each other: we for 'slow' of 'Theirs', they for 'note' of 'Probe'"));
}

} // namespace

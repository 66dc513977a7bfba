// SPDX-License-Identifier: MIT
// One allocation fails: a request, a call, a timer, a handle or a trace message is lost, and who is told so.
#include "base/trace.h"
#include "calls/handle.h"
#include "memory_fixture.h"
#include "support/heap.h"
#include "support/raw_peer.h"
#include "value/wire.h"
#include "ziltrace.h"

#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <unistd.h>

using namespace support;
using testing::HasSubstr;

extern "C" int __Memory_whole(function_call_t *call, argument_list_t *arguments, variant_t *return_value);

static int calls_with_all;    // arguments
static int calls_with_a_part; // of them

// Counts calls whose two arguments it can read, and those for which one is missing.
extern "C" int __Memory_whole(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    char *chars = nullptr;
    variant_list_t *items = nullptr;
    const int read = argument_getChar(arguments, "text", 0, &chars) + argument_getList(arguments, "list", 0, &items);
    (read == 2 && variant_list_size(items) == 1 ? calls_with_all : calls_with_a_part)++;
    free(chars);
    variant_list_destroy(items);
    if (read < 2)
        reply_addError(request_reply(fcall_request(call)), 1, "an argument is missing", "");
    fcall_destroy(call);
    return variant_setChar(return_value, "answer") ? 0 : KEX_FUNCTION_FAILED;
}

extern "C" int __Memory_large(function_call_t *call, argument_list_t *arguments, variant_t *return_value);

extern "C" int __Memory_large(function_call_t *call, argument_list_t *, variant_t *return_value) {
    static const char bytes[96 * 1024 + 1] = {};
    fcall_destroy(call);
    return variant_setByteArray(return_value, bytes, sizeof bytes) ? 0 : KEX_FUNCTION_FAILED;
}

namespace {

// Two processes keep tables of each other by the calls between them: one call less, and they differ for ever.
TEST_F(Memory, CallsArriveWholeOrTheConnectionEnds) {
    set_trace_level("0");
    bool failed = true;
    for (uint32_t n = 1; failed && n < 200; n++) {
        SCOPED_TRACE(n);
        Connected both(scratch);
        calls_with_all = calls_with_a_part = 0;
        static std::string answer;
        answer.clear();
        {
            FailingAllocation failing(n);
            both.send([](request_t *r) {
                answer = lines_of(r).empty() ? "nothing" : lines_of(r).front();
                request_destroy(r);
            });
            both.turns();
            failed = failing.has_failed();
        }
        if (answer == "value text \"answer\"") {
            EXPECT_EQ(calls_with_all, 1);
            EXPECT_EQ(both.closed_at_server + both.closed_at_client, 0);
        } else {
            EXPECT_TRUE(answer.empty() || answer.find("Peer closed") != std::string::npos) << answer;
            EXPECT_EQ(both.closed_at_server, 1);
            EXPECT_EQ(both.closed_at_client, 1);
        }
        EXPECT_EQ(kex_client_connect(both.client, uri.c_str()) != nullptr, true) << "a new connection begins anew";
    }
    EXPECT_FALSE(failed) << "there is no end to it";
}

// Without its error item it would say that all is well.
TEST_F(Memory, ReplyThatIsTooLargeSaysSoOrTheConnectionEnds) {
    set_trace_level("0");
    const char *const rows[] = {"Memory", "large"};
    bool failed = true;
    for (uint32_t n = 1; failed && n < 200; n++) {
        SCOPED_TRACE(n);
        Connected both(scratch);
        ASSERT_TRUE(kex_declareFunctions(both.server, rows, 1, 2));
        RawPeer raw(scratch.path("bus"));
        ASSERT_TRUE(raw.send(hello()));
        both.turns();
        raw.receive_all();
        ASSERT_TRUE(raw.send(support::call(1, "M", "large")));
        {
            const FailingAllocation failing(n);
            both.turns();
            failed = failing.has_failed();
        }
        const auto answer = raw.receive();
        ASSERT_TRUE(answer.has_value());
        EXPECT_EQ(kind_of(*answer), failed ? kRefused : kReply);
        EXPECT_EQ(answer->find("The reply cannot be sent") != std::string::npos, !failed);
    }
    EXPECT_FALSE(failed) << "there is no end to it";
}

TEST_F(Memory, LostRequestSaysWhyItsConnectionEnds) {
    set_trace_level("100");
    Connected both(scratch);
    CapturedTrace trace;
    {
        FailingAllocation failing(1);
        EXPECT_FALSE(both.send(nullptr));
    }
    both.turns();
    EXPECT_THAT(trace.text(), HasSubstr("connection to 'server' (process " + std::to_string(getpid()) +
                                        ") refused: a request to it is lost: out of memory"));
    EXPECT_THAT(trace.text(), HasSubstr("refused this process: a request to it is lost: out of memory"));
}

// Without it the call would be another one; and the one that is lost ends its connection.
TEST_F(Memory, RequestWithoutMemoryForAParameterIsNotSent) {
    set_trace_level("0");
    Connected both(scratch);
    const std::string name(1000, 'x'); // finds no room in the request's own block
    const variant_t one = u32(1);
    request_t *r = request_create_executeFunction("M", "whole", 0);
    {
        const FailingAllocation failing(1);
        EXPECT_FALSE(request_addParameter(r, name.c_str(), &one));
        EXPECT_TRUE(failing.has_failed());
    }
    EXPECT_FALSE(kex_sendRequest(both.client, both.peer, r));
    request_destroy(r);
    both.turns();
    EXPECT_EQ(both.closed_at_server, 1);
    EXPECT_EQ(both.closed_at_client, 1);
}

TEST_F(Memory, TimerFromTheSpareOneEndsNoConnection) {
    set_trace_level("0");
    Connected both(scratch);
    request_t *r = request_create_executeFunction("M", "whole", 0);
    kex_timer_t *timer;
    {
        FailingAllocation failing(1);
        timer = kex_timer_create();
        EXPECT_TRUE(failing.has_failed());
    }
    EXPECT_NE(timer, nullptr);
    EXPECT_TRUE(kex_sendRequest(both.client, both.peer, r));
    both.turns();
    EXPECT_EQ(both.closed_at_client, 0);
    kex_timer_destroy(timer);
    request_destroy(r);
}

// A process without memory for the timer of its next attempt would never attempt anything again.
TEST_F(Memory, TimerIsMadeFromTheSpareOne) {
    set_trace_level("0");
    kex_t *bus = kex_create("bus");
    for (int round = 0; round < 2; round++) { // one that is destroyed is spare again
        static int fired;
        fired = 0;
        FailingAllocation failing(1);
        kex_timer_t *timer = kex_timer_create();
        ASSERT_NE(timer, nullptr);
        EXPECT_TRUE(failing.has_failed());
        const FailingAllocation next(1);
        EXPECT_EQ(kex_timer_create(), nullptr) << "there is one to spare only";
        kex_timer_setHandler(timer, [](kex_timer_t *) { fired++; });
        kex_timer_start(timer, 0);
        kex_dispatch(bus);
        EXPECT_EQ(fired, 1);
        kex_timer_destroy(timer);
    }
    kex_destroy(bus);
}

} // namespace

extern "C" int __Memory_hangUp(function_call_t *call, argument_list_t *arguments, variant_t *return_value);

// Ends the connection of its caller, and then finds no memory.
extern "C" int __Memory_hangUp(function_call_t *call, argument_list_t *arguments, variant_t *) {
    peer_disconnect(fcall_peer(call));
    const FailingAllocation failing(1);
    char *chars = nullptr;
    EXPECT_FALSE(argument_getChar(arguments, "text", 0, &chars));
    fcall_destroy(call);
    return 0;
}

namespace {

TEST_F(Memory, LostCallOfOneThatHasGoneEndsNothingMore) {
    Connected both(scratch);
    const char *const row[] = {"Memory", "hangUp"};
    ASSERT_TRUE(kex_declareFunctions(both.server, row, 1, 2));
    request_t *r = request_create_executeFunction("M", "hangUp", 0);
    variant_t chars = text("text");
    ASSERT_TRUE(request_addParameter(r, "text", &chars));
    variant_cleanup(&chars);
    ASSERT_TRUE(kex_sendRequest(both.client, both.peer, r));
    both.turns();
    EXPECT_EQ(both.closed_at_server, 1);
    EXPECT_EQ(both.closed_at_client, 1);
    request_destroy(r);
}

TEST_F(Memory, HandleIsNoneWithoutMemoryForMorePlaces) {
    bus::Calls *const somebody = reinterpret_cast<bus::Calls *>(this); // is only compared
    std::vector<peer_t *> made;
    made.reserve(64);
    {
        const FailingAllocation failing(1);
        while (peer_t *one = bus::handle_create(somebody))
            made.push_back(one);
        EXPECT_TRUE(failing.has_failed());
    }
    EXPECT_LT(made.size(), 64u);
    made.push_back(bus::handle_create(somebody));
    EXPECT_NE(made.back(), nullptr) << "now there is";
    for (peer_t *one : made)
        bus::handle_destroy(one);
}

TEST_F(Memory, LongTraceMessageIsCutWithoutMemory) {
    set_trace_level("100");
    const std::string whole(5000, 'x');
    CapturedTrace trace;
    {
        const FailingAllocation failing(1);
        EXPECT_EQ(zilTrace(100, "%s", whole.c_str()), 1);
        EXPECT_TRUE(failing.has_failed());
    }
    const std::string text = trace.text();
    EXPECT_GT(text.size(), 1000u);
    EXPECT_LE(text.size(), 1024u);
    EXPECT_EQ(text, whole.substr(0, text.size() - 1) + "\n");
}

// Nobody reads, and there is no memory to keep what was said: it is counted, and told once there is room.
TEST_F(Memory, TraceThatCannotBeKeptIsCounted) {
    setenv("ZIL_TRACE_LEVEL", "100", 1);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    dup2(ends[1], STDERR_FILENO);
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    while (write(ends[1], "xxxx", 4) > 0)
        ;
    fcntl(ends[1], F_SETFL, 0);
    bus::trace_configure();
    for (int i = 0; i < 3; i++) {
        const FailingAllocation failing(1);
        zilTrace(100, "lost %d", i);
        EXPECT_TRUE(failing.has_failed());
    }
    std::string all(256 * 1024, '\0');
    EXPECT_GT(read(ends[0], all.data(), all.size()), 0);
    zilTrace(100, "told");
    bus::trace_catch_up();
    dup2(saved, STDERR_FILENO);
    close(saved);
    close(ends[1]);
    all.resize(static_cast<size_t>(read(ends[0], all.data(), all.size())));
    close(ends[0]);
    EXPECT_EQ(all, "KEX     - [!]3 trace messages were dropped: nobody took them\ntold\n");
    bus::trace_configure();
}

} // namespace

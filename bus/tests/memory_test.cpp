// SPDX-License-Identifier: MIT
// Each allocation of whole scenarios fails once: the answer is no, nothing crashes, nothing is left behind.
#include "base/faults.h"
#include "base/trace.h"
#include "calls/handle.h"
#include "kex_tap.h"
#include "support/bus_test.h"
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

extern "C" int __Memory_all(function_call_t *call, argument_list_t *arguments, variant_t *return_value);

// Reads one argument of every kind that allocates.
extern "C" int __Memory_all(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    char *chars = nullptr;
    void *data = nullptr;
    uint32_t length = 0;
    variant_list_t *items = nullptr;
    argument_getChar(arguments, "text", 0, &chars);
    argument_getByteArray(arguments, "bytes", 0, &data, &length);
    argument_getList(arguments, "list", 0, &items);
    free(chars);
    free(data);
    variant_list_destroy(items);
    reply_addError(request_reply(fcall_request(call)), 1, "description", "info");
    fcall_destroy(call);
    return variant_setChar(return_value, "answer") ? 0 : 2;
}

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

void set_trace_level(const char *level) {
    setenv("ZIL_TRACE_LEVEL", level, 1);
    bus::trace_configure();
}

// Runs the scenario with the first, the second, the third ... allocation failing, until none of them does.
void fail_each(const std::function<void()> &scenario) {
    // The expected trace messages would bury a report of the sanitizers.
    set_trace_level("0");
    for (uint32_t n = 1; n < 2000; n++) {
        SCOPED_TRACE(n);
        FailingAllocation failing(n);
        scenario();
        if (!failing.has_failed()) {
            EXPECT_GT(n, 1u) << "the scenario allocates nothing";
            return;
        }
    }
    FAIL() << "there is no end to it";
}

class Memory : public DescriptorTest {
protected:
    ScratchDirectory scratch;
    std::string socket = scratch.path("bus");
    std::string uri = uri_of(socket);
};

TEST_F(Memory, VariantsAndLists) {
    fail_each([] {
        variant_t v = {};
        variant_t items;
        variant_initialize(&items, VARIANT_LIST);
        variant_setChar(&v, "text");
        variant_list_add(variant_da_list(&items), &v);
        variant_setByteArray(&v, "bytes", 5);
        variant_list_add(variant_da_list(&items), &v);
        variant_list_add(variant_da_list(&items), &items);
        variant_cleanup(&v);
        variant_cleanup(&items);
    });
}

TEST_F(Memory, ObjectsAndFunctions) {
    fail_each([] {
        kex_t *bus = kex_create("bus");
        const char *const rows[] = {"Memory", "all", "text|words", "bytes"};
        kex_declareFunctions(bus, rows, 1, 4);
        kex_declareObject(bus, "A.B", "Memory");
        kex_declareTemplate(bus, "T", "Memory");
        kex_declareTemplate(bus, "T.U", "Memory");
        kex_declareTemplate(bus, "T.U.V", "Memory");
        object_commit(object_createInstance(kex_getObject(bus, "T", 1), 0, "one"));
        kex_timer_start(kex_timer_create(), 5);
        kex_watch(bus, STDIN_FILENO, nullptr, [](int, void *) {});
        kex_destroy(bus);
    });
}

// Everything between two processes, and a tap on it. Turns are counted, since a lost answer never comes.
TEST_F(Memory, ConnectionsAndCalls) {
    fail_each([&] {
        kex_t *server = kex_create("server");
        kex_t *client = kex_create("client");
        const char *const rows[] = {"Memory", "all"};
        kex_declareFunctions(server, rows, 1, 2);
        kex_declareObject(server, "M", "Memory");
        kex_declareObject(server, "M.Inner", "Memory");
        connection_listenOnIPC(kex_connection(server), socket.c_str());
        kex_tap_t *tap = kex_tap_open(uri.c_str(), nullptr, 0);
        peer_t *peer = kex_client_connect(client, uri.c_str());
        auto turns = [&] {
            for (int i = 0; i < 4; i++) {
                kex_dispatch(server);
                kex_dispatch(client);
            }
        };
        turns();
        request_t *r = request_create_executeFunction("M", "all", 0);
        static int done;
        done = 0;
        request_setDoneHandler(r, [](request_t *) { done++; });
        request_setReplyHandler(r, [](request_t *, reply_item_t *) {});
        request_setData(r, nullptr);
        variant_t chars = {};
        variant_t data = {};
        variant_t items;
        variant_t fd;
        variant_initialize(&items, VARIANT_LIST);
        variant_initialize(&fd, VARIANT_FD);
        variant_setChar(&chars, "text");
        variant_setByteArray(&data, "bytes", 5);
        variant_setFd(&fd, STDIN_FILENO);
        variant_list_add(variant_da_list(&items), &fd);
        request_addParameter(r, "text", &chars);
        request_addParameter(r, "bytes", &data);
        request_addParameter(r, "list", &items);
        bool sent = kex_sendRequest(client, peer, r) != 0;
        request_t *listing = request_create_executeFunction(KEX_BUILTIN_PATH, KEX_BUILTIN_LIST, 0);
        kex_sendRequest(client, peer, listing);
        turns();
        kex_tap_record_t record;
        while (kex_tap_next(tap, &record) == 1)
            ;
        kex_tap_close(tap);
        kex_destroy(server);
        server = nullptr;
        turns();
        EXPECT_EQ(done, sent ? 1 : 0) << "the done handler runs exactly once, or never after a failed send";
        request_destroy(listing);
        request_destroy(r);
        variant_cleanup(&chars);
        variant_cleanup(&data);
        variant_cleanup(&items);
        kex_destroy(client);
    });
}

// Server and client, connected before any allocation fails.
struct Connected {
    explicit Connected(const ScratchDirectory &scratch) {
        const std::string socket = scratch.path("bus");
        const char *const rows[] = {"Memory", "whole"};
        kex_declareFunctions(server, rows, 1, 2);
        kex_declareObject(server, "M", "Memory");
        connection_listenOnIPC(kex_connection(server), socket.c_str());
        peer = kex_client_connect(client, uri_of(socket).c_str());
        kex_onPeerClosed(server, count_closed, &closed_at_server);
        kex_onPeerClosed(client, count_closed, &closed_at_client);
        turns();
    }
    ~Connected() {
        kex_destroy(client);
        kex_destroy(server);
    }
    Connected(const Connected &) = delete;
    Connected &operator=(const Connected &) = delete;

    static void count_closed(kex_t *, peer_t *, void *counter) { ++*static_cast<int *>(counter); }
    void turns() {
        for (int i = 0; i < 4; i++) {
            kex_dispatch(client);
            kex_dispatch(server);
        }
    }
    // A call with a text and a list, as the library makes it: no step is looked at but the sending.
    bool send(void (*done)(request_t *r)) {
        variant_t chars = {};
        variant_t items;
        variant_initialize(&items, VARIANT_LIST);
        request_t *r = request_create_executeFunction("M", "whole", 0);
        variant_setChar(&chars, "text");
        variant_list_add(variant_da_list(&items), &chars);
        request_addParameter(r, "text", &chars);
        request_addParameter(r, "list", &items);
        request_setDoneHandler(r, done);
        const bool sent = kex_sendRequest(client, peer, r) != 0;
        variant_cleanup(&chars);
        variant_cleanup(&items);
        if (!sent || done == nullptr)
            request_destroy(r);
        return sent;
    }

    kex_t *server = kex_create("server");
    kex_t *client = kex_create("client");
    peer_t *peer = nullptr;
    int closed_at_server = 0;
    int closed_at_client = 0;
};

// A raw peer of the server too, and a tap on it that has read what has been so far.
struct Tapped : Connected {
    explicit Tapped(const ScratchDirectory &scratch)
        : Connected(scratch), raw(scratch.path("bus")),
          tap(kex_tap_open(uri_of(scratch.path("bus")).c_str(), nullptr, 0)) {
        EXPECT_TRUE(raw.send(hello()));
        EXPECT_NE(tap, nullptr);
        turns();
        kex_tap_record_t record;
        while (kex_tap_next(tap, &record) == 1)
            ;
    }
    ~Tapped() { kex_tap_close(tap); }

    // The tap's copy of a message that arrives.
    void lose_copy(uint32_t serial) {
        EXPECT_TRUE(raw.send(Packet(kWaiting, serial)));
        const FailingAllocation failing(1);
        kex_dispatch(server);
        EXPECT_TRUE(failing.has_failed());
    }

    RawPeer raw;
    kex_tap_t *tap;
};

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

// Taps only look: nobody's call is worth less because a tap has lost its copy.
TEST_F(Memory, LostTapCopyEndsNoConnection) {
    set_trace_level("0");
    Tapped both(scratch);
    request_t *r = request_create_executeFunction("M", "whole", 0);
    both.lose_copy(1);
    kex_tap_record_t record;
    EXPECT_TRUE(kex_sendRequest(both.client, both.peer, r));
    both.turns();
    EXPECT_EQ(both.closed_at_client, 0);
    ASSERT_EQ(kex_tap_next(both.tap, &record), 1);
    EXPECT_EQ(record.kind, KEX_TAP_LOST) << "it was the tap's copy";
    EXPECT_EQ(record.lost, 1u);
    request_destroy(r);
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

// It announces more than a message may have, so that its memory is not taken at once.
TEST_F(Memory, ListThatGrowsWhileItIsReadIsNoneWithoutMemory) {
    const std::string bytes = body_of(Packet(0).byte(13).word(UINT32_MAX).raw(std::string(5000, '\xFF')));
    fail_each([&] {
        bus::wire::Reader reader = bus::wire::reader_at(reinterpret_cast<const uint8_t *>(bytes.data()),
                                                        static_cast<uint32_t>(bytes.size()), 0, nullptr);
        variant_t value;
        EXPECT_FALSE(bus::wire::get_value(reader, &value));
    });
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

TEST_F(Memory, CopiesThatATapHasLostAreCountedUntilItCanBeTold) {
    set_trace_level("0");
    Tapped both(scratch);
    both.lose_copy(1);
    both.lose_copy(2);
    kex_tap_record_t record;
    EXPECT_EQ(kex_tap_next(both.tap, &record), 0);
    ASSERT_TRUE(both.raw.send(Packet(kWaiting, 3)));
    both.turns();
    ASSERT_EQ(kex_tap_next(both.tap, &record), 1);
    EXPECT_EQ(record.kind, KEX_TAP_LOST);
    EXPECT_EQ(record.lost, 2u);
    ASSERT_EQ(kex_tap_next(both.tap, &record), 1);
    EXPECT_EQ(record.serial, 3u);
}

TEST_F(Memory, ANewTapThatLosesItsFirstRecordIsToldSoFirst) {
    bool lost = false;
    for (uint32_t n = 1; n < 12 && !lost; n++) {
        Connected both(scratch);
        kex_tap_t *tap = kex_tap_open(uri.c_str(), nullptr, 0);
        ASSERT_NE(tap, nullptr);
        {
            const FailingAllocation failing(n);
            for (int i = 0; i < 4; i++)
                kex_dispatch(both.server);
        }
        kex_tap_record_t record;
        ASSERT_EQ(kex_tap_next(tap, &record), 1);
        EXPECT_NE(record.kind, KEX_TAP_CONNECTED) << "something is missing before it";
        if (record.kind == KEX_TAP_LOST) {
            lost = true;
            EXPECT_EQ(record.lost, 1u);
            EXPECT_EQ(kex_tap_next(tap, &record), 1);
            EXPECT_EQ(record.kind, KEX_TAP_CONNECTED);
        }
        kex_tap_close(tap);
    }
    EXPECT_TRUE(lost) << "none of these allocations was that of the first record";
}

TEST_F(Memory, ANewTapThatLosesItsFirstTwoRecordsIsToldOfBoth) {
    set_trace_level("0");
    bool told = false;
    for (uint32_t n = 1; n < 12 && !told; n++) {
        Connected both(scratch);
        kex_tap_t *tap = kex_tap_open(uri.c_str(), nullptr, 0);
        ASSERT_NE(tap, nullptr);
        bus::faults_read(("memory:" + std::to_string(n) + ",memory:" + std::to_string(n + 1)).c_str());
        for (int i = 0; i < 4; i++)
            kex_dispatch(both.server);
        bus::faults_read(nullptr);
        RawPeer raw(socket);
        EXPECT_TRUE(raw.send(hello()));
        both.turns();
        kex_tap_record_t record;
        ASSERT_EQ(kex_tap_next(tap, &record), 1);
        if (record.kind == KEX_TAP_LOST && record.lost == 2) {
            told = true;
            EXPECT_EQ(kex_tap_next(tap, &record), 1);
            EXPECT_STREQ(record.from.name, "raw");
        }
        kex_tap_close(tap);
    }
    EXPECT_TRUE(told) << "no two of these allocations were those of the first records";
}

} // namespace

// SPDX-License-Identifier: MIT
// A bus that is not there: replaces every function of kex.h, kex_host.h and ziltrace.h at link time, for tests of the
// library and of the hosts that use it. No test framework is needed; gtest.h beside this file adds one.
//
// What does it do?
//   Each call of a platform function becomes one line of text in one common log, traces and the test's own notes
//   included, so that a test compares whole logs and sees the order:
//
//       > libvoice_destroy_media@kex_api_calls                      entry marker
//       n libvoice_destroy_media@kex_api_calls: endpoint_name = ... notice (x error, ! warning, i information)
//       r1 = request_create_executeFunction("FXS.EndPoint.FXS1", "destroy", 0x8001)
//       request_addParameter(r1, "ep_line_id", u32 3)
//       kex_sendRequest(bus, fxs, r1) = 1
//       request_destroy(r1)
//
//   It plays the peer too: it answers requests as scripted, calls bus functions with scripted arguments and keeps
//   their replies, fires timers by a virtual clock, closes peers and holds a small data model.
//
// How does a host's loop run?
//   Nothing happens by itself. Either the test turns the loop: turn() is one turn, run_for() turns and lets the virtual
//   clock go on from one thing that is due to the next. Or the host calls kex_run() or kex_dispatch(), and the test
//   says before what is to happen meanwhile: at(), post(). A turn runs what was posted, replies that were scripted,
//   watches and timers. A watched descriptor is ready when it can be read, or when watch_ready() says so. kex_run() ends
//   with kex_stop(); with -1, and as a misuse, when nothing is left that could happen.
//   There is one bus: kex_create() gives it, and gives it again after kex_destroy(). kex_declareFunctions() keeps what
//   it is told and looks up no symbols: a test calls functions itself (Call).
//
// What does it check?
//   check() reports what the code under test left behind (requests, filled variants, lists, descriptors) and every
//   misuse seen on the way (a call destroyed twice, a trace message out of frame, ...). What a test knows will stay, it
//   declares. Any platform call can be made to fail, by name or as the n-th of all.
#ifndef VOICE_FAKE_BUS_H
#define VOICE_FAKE_BUS_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kex.h"
#include "ziltrace.h"

namespace fake {

// printf into a string; for expected lines that hold pointers and numbers.
std::string text(const char *format, ...) __attribute__((format(printf, 1, 2)));

// One typed value, as it travels in arguments, parameters and replies.
struct Value {
    uint32_t type = VARIANT_NONE; // a variant_type_code
    bool present = true;          // false: the argument is there, but without a value
    int64_t number = 0;           // integers, booleans, descriptors
    std::string data;             // text or bytes
    std::vector<Value> items;     // a list

    static Value chars(std::string text);
    static Value bytes(std::string data);
    static Value bytes(const void *data, size_t length);
    static Value boolean(bool value);
    static Value i16(int16_t value);
    static Value i32(int32_t value);
    static Value u16(uint16_t value);
    static Value u32(uint32_t value);
    static Value fd(int value);
    static Value list(std::vector<Value> items);
    static Value fds(const std::vector<int> &descriptors);
    static Value without_value(uint32_t type);

    // As the log shows it: "text", u32 3, bool true, bytes(4) 01 02 03 04, fd 5, list[...], none, null.
    std::string str() const;
};

// One line that reached the trace service.
struct TraceLine {
    int level = 0;
    bool zoned = false;         // came through zilTraceZ
    std::string zone_argument;  // what zilTraceZ was given to filter by
    std::string format;         // the whole format, as passed
    std::string rendered;       // the whole line, as a service would print it
    bool marker = false;        // entry or exit
    bool enter = false;         // of a marker: entry
    std::string zone;           // as passed, before the frame cuts it
    std::string tag;            // "x", "!", "n", "i"; empty for markers
    std::string message_format; // the message's own format
    std::string message;        // the message, rendered
    std::string function, file; // who wrote it; the file as passed
    int line = 0;

    // As the common log shows it. The zone stands only where it is not "LIBV".
    std::string str() const;
};

// What a scripted answer holds.
struct Reply {
    struct Item {
        int32_t type = 0; // a reply_item_type_code
        uint32_t code = 0;
        std::string description, info;
        Value value;
    };
    bool available = true; // false: request_reply() gives null
    std::vector<Item> items;

    Reply &error(uint32_t code, std::string description, std::string info);
    Reply &value(Value value);
    static Reply none();
};

// A request as it was built; stays readable after its destruction.
struct RequestRecord {
    unsigned id = 0;
    std::string path, function;
    uint32_t flags = 0;
    std::vector<std::pair<std::string, Value>> parameters;
    void (*reply_handler)(request_t *, reply_item_t *) = nullptr;
    void (*done_handler)(request_t *) = nullptr;
    void *data = nullptr;
    bool sent = false;
    bool alive = true;
    peer_t *peer = nullptr;

    std::string name() const; // "r1"
    // The value of a parameter; type VARIANT_NONE when it was not added.
    Value parameter(const std::string &name) const;
};

// How much of each kind is alive.
struct Live {
    unsigned requests = 0, variants = 0, lists = 0, timers = 0, watches = 0;
};

class Bus {
public:
    Bus();
    ~Bus();
    Bus(const Bus &) = delete;
    Bus &operator=(const Bus &) = delete;

    // Forgets everything: log, scripts, faults, objects, peers. Descriptors open now count as the test's own.
    void reset();

    kex_t *handle();
    connection_t *connection();

    // ---- the log
    void note(const std::string &text);                   // a line of the test's own, for callbacks
    std::vector<std::string> log() const;                 // actions, notes, traces, markers
    std::vector<std::string> log_without_markers() const; // for functions whose markers are free
    std::vector<std::string> acts() const;                // actions and notes only
    std::vector<std::string> everything() const;          // look-ups and variant calls too
    const std::vector<TraceLine> &traces() const;         // each line in full
    std::vector<std::string> trace_log() const;           // traces and markers only
    std::vector<std::string> complaints() const;          // traces of level 100 and 200 only
    void clear_log();
    void name_function(const void *function, std::string name); // how a handler shows in the log
    // The host traces by itself: without the library's frame, which is a misuse else. Its lines show as "trace 100: ...",
    // or "trace 400 [ZONE]: ...".
    void takes_own_traces();

    // ---- faults: the answer is then that of a bus that cannot
    void fail_call(unsigned n);                             // the n-th call that can fail at all, from now on
    void fail(const std::string &function, unsigned n = 1); // the n-th call of one function, from now on
    void fail_always(const std::string &function);          // every call of one function
    const std::string &failed() const;                      // the function that failed so; empty: none did

    // ---- requests that leave
    // Answers to a function, until changed; to its next request (in a queue, which goes before); to those with a value
    // of a parameter (which goes before "every request"); by what was asked. Without any, a reply is empty.
    void answer(const std::string &function, Reply reply);
    void answer_next(const std::string &function, Reply reply);
    void answer_when(const std::string &function, const std::string &parameter, const Value &value, Reply reply);
    void answer_by(const std::string &function, std::function<Reply(const RequestRecord &)> reply);
    request_t *request(unsigned id); // r<id>; null when there was none
    const RequestRecord &record(unsigned id);
    unsigned requests_made() const;
    // Completes a request: the reply is there, its handlers run as the bus runs them. A turn does so by itself for
    // requests with a handler and a scripted answer.
    void complete(request_t *request, Reply reply);

    // ---- peers
    peer_t *peer(const std::string &name); // made at first use
    // The peer is gone: requests that wait for its reply end with an error, its handler runs, then that of
    // kex_onPeerClosed(). What its own one answers, 0 without one.
    int close(peer_t *peer);
    void process(peer_t *peer, const std::string &name,
                 int32_t id); // of a peer; first its own name, and 1001, 1002, ...
    // What kex_client_connect() answers; null: refused. Unless set it is the peer "application": after its close a new
    // one, which peer() gives from then on.
    void connect_gives(peer_t *peer);

    // ---- timers, by a virtual clock in milliseconds
    uint64_t now() const;
    void advance(uint64_t milliseconds); // fires what is due, in order; timers only
    unsigned timers_armed() const;

    // ---- the loop
    int turn();                                            // how much ran; -1 after kex_stop()
    void run_for(uint64_t milliseconds);                   // turns, and the clock with them
    void post(std::function<void()> work);                 // for the next turn: a call that arrives, an end
    void at(uint64_t milliseconds, std::function<void()>); // the same, at a time of the clock
    void watch_ready(int fd);                              // its handler runs once in the next turn
    bool is_watched(int fd) const;
    bool is_stopped() const; // by kex_stop()
    // What kex_declareFunctions() was told: class, function and arguments.
    const std::vector<std::vector<std::string>> &declared_functions() const;

    // ---- the local data model
    object_t *object(const std::string &path); // made at first use, its parents too
    object_t *nameless_object();               // one whose name the bus cannot tell
    bool exists(const std::string &path) const;
    std::string class_of(const std::string &path) const; // as it was declared, or as its template was; else ""

    // ---- what is left behind
    Live live() const;
    void leaves_requests(unsigned count, const std::string &why); // declares what will stay alive
    void leaves_descriptors(int count, const std::string &why);
    void problem(const std::string &text); // a misuse, reported by check()
    std::vector<std::string> check();      // what is wrong now; destroys what is left

    struct State;
    State &state() { return *state_; }

private:
    std::unique_ptr<State> state_;
};

// The one bus that the platform functions talk to.
Bus &bus();

// The number of descriptors that are open in this process.
int open_descriptors();

// A call that arrives at a bus function.
class Call {
public:
    Call();
    ~Call();
    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;

    Call &on(object_t *object);
    Call &from(peer_t *peer);
    Call &named(const std::string &function); // for kex_currentCall(); "" unless set
    Call &attributes(uint32_t attributes);    // 0x8001 unless set
    // Adds an argument. Descriptors stay the test's own: the callee gets duplicates, as over a real connection. Bytes come
    // in a block of their length, without the zeros of a real bus behind them, so that a sanitizer sees what is read
    // past them: give a record of fixed size whole (LIBVOICE_CNX_INFO_BYTES, LIBVOICE_STREAM_INFO_BYTES).
    Call &with(const std::string &name, Value value);

    // The status; failed, and the function not run, when kex_onCall()'s handler says no. The one of kex_onFailed() is
    // told when the function itself failed.
    int run(kex_function_t *function);
    // Afterwards:
    const Value &returned() const;                  // VARIANT_NONE when no return value was set
    const std::vector<std::string> &errors() const; // 196640 "Missing mandatory argument" "signal"

    struct State;

private:
    std::unique_ptr<State> state_;
};

// The first difference of two logs in words, both values shown; empty when they are equal. An expected line may end
// with "<any>" where a text is free; something must stand there.
std::string difference(const std::vector<std::string> &expected, const std::vector<std::string> &got);

} // namespace fake

#endif

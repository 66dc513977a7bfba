// SPDX-License-Identifier: MIT
// kex_waitForReply: what it waits for, how long, and what runs meanwhile.
#include "far.h"
#include "groups.h"
#include "request.h"

#include <unistd.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

int answer(function_call_t *call, argument_list_t *, variant_t *return_value) {
    lib.fcall_destroy(call);
    return lib.variant_setUInt32(return_value, 5) ? KEX_FUNCTION_DONE : KEX_FUNCTION_FAILED;
}

void serve() {
    on_run = answer;
    far_plain();
}

void neither_handler() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    expect(lib.request_reply(r) == nullptr, "there is a reply before it was sent");
    request_send(peer, r);
    expect(lib.request_reply(r) == nullptr, "there is a reply before anything was read");
    request_wait(r);
    expect_number("return value", reply_number(lib.request_reply(r)), 5);
    lib.request_destroy(r);
    host_end();
}

void without_limit() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    request_send(peer, r);
    expect(lib.kex_waitForReply(bus, r, nullptr) != 0, "kex_waitForReply answers no");
    expect_number("return value", reply_number(lib.request_reply(r)), 5);
    lib.request_destroy(r);
    host_end();
}

void done_note(request_t *r) {
    event("done");
    lib.request_destroy(r);
}

void with_a_handler() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    lib.request_setDoneHandler(r, done_note);
    request_send(peer, r);
    request_wait(r);
    expect_text("handlers before a turn", events, "");
    expect_number("return value", reply_number(lib.request_reply(r)), 5);
    turn_until("the done handler", [] { return event_was("done"); });
    call_and_wait(peer, "again", 0);
    turn_for(20);
    expect_text("handlers", events, "done");
    host_end();
}

int answer_when_told(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    line_say('r');
    line_hear('g');
    return answer(call, arguments, return_value);
}

void serve_when_told() {
    on_run = answer_when_told;
    far_plain();
}

void time_is_up() {
    constexpr int kShort = 200; // milliseconds
    const timeval limit = {0, kShort * 1000};
    peer_t *peer = far_connect();
    request_t *r = request_make();
    request_send(peer, r);
    const int64_t begin = now_in_milliseconds();
    expect_number("kex_waitForReply", lib.kex_waitForReply(bus, r, &limit), 0);
    const int64_t took = now_in_milliseconds() - begin;
    expect(took >= kShort - 20, "it came back after %d ms", static_cast<int>(took));
    expect(lib.request_reply(r) == nullptr, "there is a reply");
    line_hear('r');
    line_say('g');
    lib.request_destroy(r);
    host_end();
}

// What came too late for one wait is there for the next.
void waits_again() {
    const timeval limit = {0, 50000};
    peer_t *peer = far_connect();
    request_t *r = request_make();
    request_send(peer, r);
    expect_number("the first wait", lib.kex_waitForReply(bus, r, &limit), 0);
    line_hear('r');
    line_say('g');
    request_wait(r);
    expect_number("return value", reply_number(lib.request_reply(r)), 5);
    lib.request_destroy(r);
    host_end();
}

void waits_in_turns() {
    const timeval limit = {0, 50000};
    peer_t *peer = far_connect();
    request_t *r = request_make();
    lib.request_setDoneHandler(r, done_note);
    request_send(peer, r);
    expect_number("the wait", lib.kex_waitForReply(bus, r, &limit), 0);
    line_say('g');
    line_hear_in_turns('r');
    turn_until("the done handler", [] { return event_was("done"); });
    host_end();
    saw("the handler runs for a reply that came after the wait");
}

int answer_late(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    sleep(31);
    return answer(call, arguments, return_value);
}

void late_reply() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    request_send(peer, r);
    const int64_t begin = now_in_milliseconds();
    expect(lib.kex_waitForReply(bus, r, nullptr) != 0, "kex_waitForReply answers no after %d ms",
           static_cast<int>(now_in_milliseconds() - begin));
    expect_number("return value after 31 s", reply_number(lib.request_reply(r)), 5);
    lib.request_destroy(r);
    host_end();
}

void late_done() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    static uint32_t number;
    lib.request_setDoneHandler(r, [](request_t *request) {
        number = reply_number(lib.request_reply(request));
        event("done");
        lib.request_destroy(request);
    });
    request_send(peer, r);
    const int64_t end = now_in_milliseconds() + 45000;
    while (!event_was("done") && now_in_milliseconds() < end)
        turn();
    expect_number("return value after 31 s", number, 5);
    host_end();
}

void serve_late() {
    on_run = answer_late;
    far_plain();
}

// A function of this process waits for the process that called it, which goes on turning meanwhile.
int wait_inside(function_call_t *call, argument_list_t *, variant_t *return_value) {
    request_t *r = request_make("again");
    const uint32_t number = reply_number(request_call(lib.fcall_peer(call), r));
    lib.request_destroy(r);
    lib.fcall_destroy(call);
    return lib.variant_setUInt32(return_value, number + 1) ? KEX_FUNCTION_DONE : KEX_FUNCTION_FAILED;
}

void serve_waiting() {
    on_run = wait_inside;
    far_plain();
}

void in_a_function() {
    on_again = answer;
    peer_t *peer = far_connect();
    request_t *r = request_make();
    static uint32_t number;
    lib.request_setDoneHandler(r, [](request_t *request) {
        number = reply_number(lib.request_reply(request));
        lib.request_destroy(request);
    });
    request_send(peer, r);
    turn_until("the reply of a function that waits itself", [] { return number != 0; });
    expect_number("return value", number, 6);
    host_end();
}

// The handler of one request waits for another one.
void in_a_handler() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    static uint32_t number;
    lib.request_setData(r, peer);
    lib.request_setDoneHandler(r, [](request_t *request) {
        request_t *other = request_make();
        number = reply_number(request_call(static_cast<peer_t *>(lib.request_data(request)), other));
        lib.request_destroy(other);
        lib.request_destroy(request);
    });
    request_send(peer, r);
    turn_until("the handler that waits", [] { return number != 0; });
    expect_number("return value", number, 5);
    host_end();
}

void in_a_timer() {
    static uint32_t number;
    static peer_t *peer;
    peer = far_connect();
    kex_timer_t *timer = lib.kex_timer_create();
    lib.kex_timer_setHandler(timer, [](kex_timer_t *running) {
        request_t *r = request_make();
        number = reply_number(request_call(peer, r));
        lib.request_destroy(r);
        lib.kex_timer_destroy(running);
    });
    lib.kex_timer_start(timer, 1);
    turn_until("the timer that waits", [] { return number != 0; });
    expect_number("return value", number, 5);
    host_end();
}

constexpr char kWait[] = "Blocks until the reply is complete.";
constexpr char kNoLimit[] = "The bus has no limit of time for a reply: one that comes after an hour counts.";
constexpr char kInside[] = "Functions and handlers may wait.";

constexpr Check kChecks[] = {
    {"waits.neither_handler", kMust, kWait, neither_handler, serve, 0, false},
    {"waits.without_limit", kMust, "NULL: no limit", without_limit, serve, 0, false},
    {"waits.with_a_handler", kMust, "A request that has a handler may be waited for: its handlers run in a later turn.",
     with_a_handler, serve, 0, false},
    {"waits.time_is_up", kMust, "@return no when the time is up or the peer has closed (at once)", time_is_up,
     serve_when_told, 0, false},
    {"waits.again", Level::should, "After a no the request is as it was: it can be waited for again.", waits_again,
     serve_when_told, 0, false},
    {"waits.then_turns", Level::should, "After a no the request is as it was: it can be waited for again.",
     waits_in_turns, serve_when_told, 0, false},
    {"waits.late_reply", kMust, kNoLimit, late_reply, serve_late, 60, true},
    {"waits.late_done", kMust, kNoLimit, late_done, serve_late, 60, true},
    {"waits.in_a_function", kMust, kInside, in_a_function, serve_waiting, 0, false},
    {"waits.in_a_handler", kMust, kInside, in_a_handler, serve, 0, false},
    {"waits.in_a_timer", kMust, kInside, in_a_timer, serve, 0, false},
};

} // namespace

const Group kWaits = group_of(kChecks);

} // namespace conformance

// SPDX-License-Identifier: MIT
// What comes from one peer runs in the order in which it was sent, and during a wait nothing runs.
#include "far.h"
#include "groups.h"
#include "request.h"

#include <stdio.h>
#include <unistd.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;
constexpr uint32_t kMany = 300;

uint32_t next_number;

// Numbers that have to come one after the other.
int number_in_order(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    const uint32_t number = argument_number(arguments);
    expect(number == next_number, "call %u runs where %u was expected", number, next_number);
    next_number++;
    lib.fcall_destroy(call);
    return lib.variant_setUInt32(return_value, number) ? KEX_FUNCTION_DONE : KEX_FUNCTION_FAILED;
}

void serve_in_order() {
    on_run = on_again = number_in_order;
    far_listen();
    far_serve();
    expect_number("calls that ran", next_number, kMany + 1);
    host_end();
}

void one_way() {
    peer_t *peer = far_connect();
    for (uint32_t i = 0; i < kMany; i++)
        call_one_way(peer, i % 3 == 0 ? "again" : "run", i);
    call_and_wait(peer, "run", kMany);
    host_end();
}

// Those that are answered and those that are not share one order.
void mixed() {
    peer_t *peer = far_connect();
    static uint32_t answered;
    for (uint32_t i = 0; i < kMany; i++) {
        if (i % 2 == 0) {
            call_one_way(peer, "run", i);
            continue;
        }
        request_t *r = request_make();
        request_add_number(r, "value", i);
        lib.request_setDoneHandler(r, [](request_t *request) {
            const uint32_t number = reply_number(lib.request_reply(request));
            expect(number == 2 * answered + 1, "the reply to %u comes where that to %u was expected", number,
                   2 * answered + 1);
            answered++;
            lib.request_destroy(request);
        });
        request_send(peer, r);
    }
    turn_until("all replies", [] { return answered == kMany / 2; });
    call_and_wait(peer, "run", kMany);
    expect_number("replies in order", answered, kMany / 2);
    host_end();
}

void at_a_wait() {
    peer_t *peer = far_connect();
    for (uint32_t i = 0; i < kMany; i++)
        call_one_way(peer, "run", i);
    request_t *r = request_make("again"); // the wait for it sends what was queued before
    request_add_number(r, "value", kMany);
    request_send(peer, r);
    request_wait(r);
    lib.request_destroy(r);
    host_end();
}

// ----------------------------------------------------------------------------------- Requests of a function

int ask_first(function_call_t *call, argument_list_t *, variant_t *return_value) {
    call_one_way(lib.fcall_peer(call), "again", 1);
    call_one_way(lib.fcall_peer(call), "again", 2);
    lib.fcall_destroy(call);
    return lib.variant_setUInt32(return_value, 3) ? KEX_FUNCTION_DONE : KEX_FUNCTION_FAILED;
}

void serve_asking() {
    on_run = ask_first;
    far_plain();
}

int number_note(function_call_t *call, argument_list_t *arguments, variant_t *) {
    char word[16];
    snprintf(word, sizeof word, "%u", argument_number(arguments));
    event(word);
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void done_note(request_t *r) {
    event("done");
    lib.request_destroy(r);
}

void before_the_reply() {
    on_again = number_note;
    peer_t *peer = far_connect();
    request_t *r = request_make();
    lib.request_setDoneHandler(r, done_note);
    request_send(peer, r);
    turn_until("the reply", [] { return event_was("done"); });
    expect_text("order", events, "1 2 done");
    host_end();
}

// ----------------------------------------------------------------------------------- During a wait

void calls_are_held() {
    on_again = number_note;
    peer_t *peer = far_connect();
    request_t *r = request_make();
    request_send(peer, r);
    request_wait(r);
    expect_text("calls that ran during the wait", events, "");
    expect_number("return value", reply_number(lib.request_reply(r)), 3);
    lib.request_destroy(r);
    turn_until("the calls that came meanwhile", [] { return event_was("2"); });
    expect_text("order", events, "1 2");
    host_end();
}

void timers_are_held() {
    peer_t *peer = far_connect();
    kex_timer_t *timer = lib.kex_timer_create();
    lib.kex_timer_setHandler(timer, [](kex_timer_t *) { event("timer"); });
    lib.kex_timer_start(timer, 1);
    request_t *r = request_make();
    request_send(peer, r);
    request_wait(r);
    expect_text("timers during a wait of 100 ms", events, "");
    lib.request_destroy(r);
    turn_until("the timer, after the wait", [] { return event_was("timer"); });
    lib.kex_timer_destroy(timer);
    host_end();
}

int answer_slowly(function_call_t *call, argument_list_t *, variant_t *) {
    usleep(100000);
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void serve_slowly() {
    on_run = answer_slowly;
    far_plain();
}

void handlers_are_held() {
    peer_t *peer = far_connect();
    request_t *first = request_make("again");
    lib.request_setDoneHandler(first, done_note);
    request_send(peer, first);
    request_t *second = request_make();
    request_send(peer, second);
    request_wait(second);
    expect_text("handlers of other requests during the wait", events, "");
    lib.request_destroy(second);
    turn_until("the handler, after the wait", [] { return event_was("done"); });
    host_end();
}

// A reply and the calls before it: what was held keeps its place among what comes later.
void held_before_later() {
    on_again = number_note;
    peer_t *peer = far_connect();
    for (unsigned i = 0; i < 2; i++) {
        request_t *r = request_make();
        request_send(peer, r);
        request_wait(r);
        lib.request_destroy(r);
    }
    request_t *r = request_make();
    lib.request_setDoneHandler(r, done_note);
    request_send(peer, r);
    turn_until("the reply", [] { return event_was("done"); });
    expect_text("order", events, "1 2 1 2 1 2 done");
    host_end();
}

// A wait inside a function that runs while other calls of the same peer lie behind it.
int wait_in_between(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    const uint32_t number = argument_number(arguments);
    expect(number == next_number, "call %u runs where %u was expected", number, next_number);
    request_t *r = request_make("again");
    request_call(lib.fcall_peer(call), r);
    lib.request_destroy(r);
    expect(number == next_number, "call %u ran during the wait of call %u", next_number, number);
    next_number++;
    lib.fcall_destroy(call);
    return lib.variant_setUInt32(return_value, number) ? KEX_FUNCTION_DONE : KEX_FUNCTION_FAILED;
}

void serve_nested() {
    on_run = wait_in_between;
    far_listen();
    far_serve();
    expect_number("calls that ran", next_number, 10);
    host_end();
}

void nested_waits() {
    static bool is_done;
    peer_t *peer = far_connect();
    for (uint32_t i = 0; i < 9; i++)
        call_one_way(peer, "run", i);
    request_t *r = request_make();
    request_add_number(r, "value", 9);
    lib.request_setDoneHandler(r, [](request_t *request) {
        is_done = true;
        lib.request_destroy(request);
    });
    request_send(peer, r);
    turn_until("the last of ten functions that wait", [] { return is_done; });
    host_end();
}

constexpr char kInOrder[] = "Queues a copy for the peer, in order.";
constexpr char kHeld[] =
    "Nothing else is dispatched meanwhile, neither calls nor timers: what arrives from that peer is "
    "kept in order and handled after the wait.";

constexpr Check kChecks[] = {
    {"order.one_way", kMust, kInOrder, one_way, serve_in_order, 0, false},
    {"order.mixed", kMust, kInOrder, mixed, serve_in_order, 0, false},
    {"order.at_a_wait", kMust, "It leaves at the next turn of the loop, at a wait, or when enough is queued.",
     at_a_wait, serve_in_order, 0, false},
    {"order.before_the_reply", kMust, "What a function sends to its caller arrives before its reply.", before_the_reply,
     serve_asking, 0, false},
    {"order.calls_are_held", kMust, kHeld, calls_are_held, serve_asking, 0, false},
    {"order.timers_are_held", kMust, kHeld, timers_are_held, serve_slowly, 0, false},
    {"order.handlers_are_held", kMust, kHeld, handlers_are_held, serve_slowly, 0, false},
    {"order.held_before_later", kMust, kHeld, held_before_later, serve_asking, 0, false},
    {"order.nested_waits", kMust, "Functions and handlers may wait.", nested_waits, serve_nested, 0, false},
};

} // namespace

const Group kOrder = group_of(kChecks);

} // namespace conformance

// SPDX-License-Identifier: MIT
// A process that ends: its last calls run, then its close event, and nobody waits for it.
#include "far.h"
#include "groups.h"
#include "request.h"

namespace conformance {

namespace {

constexpr Level kMust = Level::must;
constexpr uint32_t kCalls = 20;

uint32_t ran, closes, ran_at_close;

int call_count(function_call_t *call, argument_list_t *arguments, variant_t *) {
    expect(closes == 0, "a call ran after the close event");
    const uint32_t number = argument_number(arguments);
    expect(number == ran, "call %u runs where %u was expected", number, ran);
    ran++;
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

int closed_note(peer_t *, int, void *) {
    closes++;
    ran_at_close = ran;
    return 0;
}

peer_t *watched_peer() {
    peer_t *peer = far_connect();
    expect(lib.peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, closed_note) != 0,
           "peer_setEventHandler answers no");
    return peer;
}

// Twenty calls to whoever calls it, all of which have left before the process ends.
int send_and_vanish(function_call_t *call, argument_list_t *, variant_t *) {
    peer_t *caller = lib.fcall_peer(call);
    line_say('r');
    line_hear('g');
    for (uint32_t i = 0; i < kCalls; i++)
        call_one_way(caller, "again", i);
    request_t *r = request_make("run"); // a wait sends all that is queued
    const timeval limit = {0, 300000};
    request_send(caller, r);
    lib.kex_waitForReply(bus, r, &limit);
    process_vanish();
}

void serve_and_vanish() {
    on_run = send_and_vanish;
    far_plain();
}

void expect_last_and_once() {
    turn_until("the close event", [] { return closes > 0; });
    turn_for(50);
    expect_number("calls that ran before it", ran_at_close, kCalls);
    expect_number("calls that ran", ran, kCalls);
    expect_number("close events", closes, 1);
    host_end();
}

void last_and_once() {
    on_again = call_count;
    call_one_way(watched_peer(), "run", 0);
    line_hear_in_turns('r');
    line_say('g');
    expect_last_and_once();
}

// Nothing is read here until the other process has gone, and so much is queued then that it is written at once: the write
// fails while twenty calls lie unread.
void own_write_fails_first() {
    static const uint8_t much[60000] = {};
    on_again = call_count;
    peer_t *peer = watched_peer();
    call_one_way(peer, "run", 0);
    line_hear_in_turns('r');
    line_say('g');
    line_hear('\0');
    for (unsigned i = 0; i < 10; i++) {
        request_t *r = request_make();
        request_add_bytes(r, "value", much, sizeof much);
        lib.kex_sendRequest(bus, peer, r); // no is as good as yes here
        lib.request_destroy(r);
    }
    expect_last_and_once();
}

// ----------------------------------------------------------------------------------- Requests without an answer

int vanish(function_call_t *, argument_list_t *, variant_t *) {
    process_vanish();
}

void serve_vanishing() {
    on_run = vanish;
    far_plain();
}

void wait_fails_at_once() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    request_send(peer, r);
    const int64_t begin = now_in_milliseconds();
    expect_number("kex_waitForReply without a limit", lib.kex_waitForReply(bus, r, nullptr), 0);
    const int64_t took = now_in_milliseconds() - begin;
    expect(took < kPatience, "it came back after %d ms", static_cast<int>(took));
    lib.request_destroy(r);
    host_end();
}

void done_runs_once() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    lib.request_setDoneHandler(r, [](request_t *request) {
        reply_t *reply = lib.request_reply(request);
        expect_number("items", reply_count(reply), 1);
        expect_number("type", lib.reply_item_type(lib.reply_firstItem(reply)), REPLY_ITEM_ERROR);
        expect(lib.reply_item_errorDescription(lib.reply_firstItem(reply)) != nullptr, "there is no description");
        event("done");
        lib.request_destroy(request);
    });
    request_send(peer, r);
    turn_until("the done handler", [] { return event_was("done"); });
    turn_for(50);
    expect_text("handlers", events, "done");
    host_end();
}

void reply_ends_with_null() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    lib.request_setReplyHandler(r, [](request_t *request, reply_item_t *item) {
        if (item != nullptr) {
            expect_number("type", lib.reply_item_type(item), REPLY_ITEM_ERROR);
            return;
        }
        event("end");
        lib.request_destroy(request);
    });
    request_send(peer, r);
    turn_until("the last call of the handler", [] { return event_was("end"); });
    turn_for(50);
    expect_text("handlers", events, "end");
    host_end();
}

void all_end() {
    static unsigned ended;
    static bool closed;
    peer_t *peer = far_connect();
    lib.peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, [](peer_t *, int, void *) {
        closed = true;
        return 0;
    });
    for (unsigned i = 0; i < 10; i++) {
        request_t *r = request_make();
        lib.request_setDoneHandler(r, [](request_t *request) {
            ended++;
            lib.request_destroy(request);
        });
        request_send(peer, r);
    }
    turn_until("the close event", [] { return closed; });
    turn_until("all done handlers", [] { return ended >= 10; });
    turn_for(50);
    expect_number("done handlers", ended, 10);
    host_end();
}

// ----------------------------------------------------------------------------------- The listening side

void serve_last_and_once() {
    on_again = call_count;
    on_run = [](function_call_t *call, argument_list_t *, variant_t *) {
        lib.peer_setEventHandler(lib.fcall_peer(call), PEER_EVENT_CLOSED, nullptr, closed_note);
        lib.fcall_destroy(call);
        return int{KEX_FUNCTION_DONE};
    };
    far_listen();
    expect_last_and_once();
}

void calls_then_ends() {
    peer_t *peer = far_connect();
    call_and_wait(peer, "run", 0);
    for (uint32_t i = 0; i < kCalls; i++)
        call_one_way(peer, "again", i);
    host_end();
}

// What the function answers goes to somebody who has gone.
int answer_nobody(function_call_t *call, argument_list_t *, variant_t *return_value) {
    lib.peer_setEventHandler(lib.fcall_peer(call), PEER_EVENT_CLOSED, nullptr, closed_note);
    line_hear('\0');
    lib.fcall_destroy(call);
    return lib.variant_setUInt32(return_value, 1) ? KEX_FUNCTION_DONE : KEX_FUNCTION_FAILED;
}

void serve_answering_nobody() {
    on_run = answer_nobody;
    far_listen();
    turn_until("the close event", [] { return closes > 0; });
    turn_for(50);
    expect_number("close events", closes, 1);
    host_end();
}

// The caller ends when it is called itself, so the bus knows of it while the first call still runs.
int watch_after_the_end(function_call_t *call, argument_list_t *, variant_t *) {
    peer_t *caller = lib.fcall_peer(call);
    request_t *r = request_make();
    request_send(caller, r);
    expect_number("kex_waitForReply", lib.kex_waitForReply(bus, r, nullptr), 0);
    lib.request_destroy(r);
    expect(lib.peer_setEventHandler(caller, PEER_EVENT_CLOSED, nullptr, closed_note) != 0,
           "peer_setEventHandler answers no although the close event is to come");
    expect_number("close events while a call runs", closes, 0);
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void vanishes_when_called() {
    on_run = vanish;
    call_one_way(far_connect(), "run", 0);
    turn_until("the call of the other process", [] { return false; });
}

void serve_watching_late() {
    on_run = watch_after_the_end;
    far_listen();
    turn_until("the close event", [] { return closes > 0; });
    turn_for(50);
    expect_number("close events", closes, 1);
    host_end();
}

void asks_and_vanishes() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    const timeval limit = {0, 100000};
    request_send(peer, r);
    expect_number("kex_waitForReply", lib.kex_waitForReply(bus, r, &limit), 0);
    process_vanish();
}

constexpr char kLast[] =
    "The connection is gone. Runs once, after the last call that the peer had sent, also when this "
    "side notices the end first because it cannot write.";
constexpr char kDone[] = "It runs exactly once, also when the peer closes: the reply then holds one error item.";

constexpr Check kChecks[] = {
    {"closing.last_and_once", kMust, kLast, last_and_once, serve_and_vanish, 0, false},
    {"closing.own_write_fails_first", kMust, kLast, own_write_fails_first, serve_and_vanish, 0, false},
    {"closing.at_the_listener", kMust, kLast, calls_then_ends, serve_last_and_once, 0, false},
    {"closing.answer_nobody", kMust, kLast, asks_and_vanishes, serve_answering_nobody, 0, false},
    {"closing.watched_late", kMust,
     "A peer whose close event is still to come takes a handler, although its end is known: calls that it had sent may "
     "have to run before.",
     vanishes_when_called, serve_watching_late, 0, false},
    {"closing.wait_fails_at_once", kMust, "@return no when the time is up or the peer has closed (at once)",
     wait_fails_at_once, serve_vanishing, 0, false},
    {"closing.done_runs_once", kMust, kDone, done_runs_once, serve_vanishing, 0, false},
    {"closing.reply_ends_with_null", kMust,
     "It runs once for each item and once more with a null item when the reply is complete or the peer has closed; in "
     "that last call its owner destroys the request.",
     reply_ends_with_null, serve_vanishing, 0, false},
    {"closing.all_end", kMust, kDone, all_end, serve_vanishing, 0, false},
};

} // namespace

const Group kClosing = group_of(kChecks);

} // namespace conformance

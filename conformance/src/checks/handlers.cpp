// SPDX-License-Identifier: MIT
// Handlers of replies: which run, how often, and what they may do.
#include "far.h"
#include "groups.h"
#include "request.h"

#include <string.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

// Each reply holds an error and a value, so that there is more than one item.
int answer_twofold(function_call_t *call, argument_list_t *, variant_t *return_value) {
    lib.reply_addError(lib.request_reply(lib.fcall_request(call)), 7, "seven", "");
    lib.variant_setUInt32(return_value, 8);
    lib.fcall_destroy(call);
    event("ran");
    return KEX_FUNCTION_DONE;
}

void serve() {
    on_run = answer_twofold;
    far_plain();
}

void serve_and_count() {
    on_run = answer_twofold;
    far_listen();
    far_serve();
    expect_text("functions that ran", events, "ran");
    host_end();
}

void reply_note(request_t *r, reply_item_t *item) {
    if (item == nullptr) {
        event("end");
        lib.request_destroy(r);
        return;
    }
    event(lib.reply_item_type(item) == REPLY_ITEM_ERROR ? "error" : "value");
}

void done_note(request_t *r) {
    event("done");
    if (lib.request_reply(r) == nullptr)
        event("without-reply");
    lib.request_destroy(r);
}

// What was sent to the same peer later has been answered: whatever was to come before has come.
void all_come(peer_t *peer) {
    request_t *r = request_make("again");
    request_call(peer, r);
    lib.request_destroy(r);
    turn_for(50);
}

void reply_handler() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    lib.request_setReplyHandler(r, reply_note);
    request_send(peer, r);
    turn_until("the end of the reply", [] { return event_was("end"); });
    all_come(peer);
    expect_text("handler", events, "error value end");
    host_end();
}

void done_handler() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    lib.request_setDoneHandler(r, done_note);
    request_send(peer, r);
    turn_until("the done handler", [] { return event_was("done"); });
    all_come(peer);
    expect_text("handler", events, "done");
    host_end();
}

void reply_note_and_keep(request_t *, reply_item_t *item) {
    event(item == nullptr ? "end" : "item");
}

void both() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    lib.request_setDoneHandler(r, done_note);
    lib.request_setReplyHandler(r, reply_note_and_keep);
    request_send(peer, r);
    turn_until("the done handler", [] { return event_was("done"); });
    all_come(peer);
    expect_text("handlers", events, "item item end done");
    host_end();
}

void reply_destroy_at_first(request_t *r, reply_item_t *) {
    event("first");
    lib.request_destroy(r);
}

void destroyed_early() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    lib.request_setReplyHandler(r, reply_destroy_at_first);
    lib.request_setDoneHandler(r, done_note);
    request_send(peer, r);
    turn_until("the first item", [] { return event_was("first"); });
    all_come(peer);
    expect_text("handlers", events, "first");
    host_end();
}

void done_sends_another(request_t *r) {
    event("done");
    peer_t *peer = static_cast<peer_t *>(lib.request_data(r));
    lib.request_destroy(r);
    request_t *other = request_make();
    lib.request_setReplyHandler(other, reply_note);
    request_send(peer, other);
}

void sends_in_handler() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    lib.request_setData(r, peer);
    lib.request_setDoneHandler(r, done_sends_another);
    request_send(peer, r);
    turn_until("the end of the second reply", [] { return event_was("end"); });
    expect_text("handlers", events, "done error value end");
    host_end();
}

void replaced() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    lib.request_setReplyHandler(r, reply_note);
    lib.request_setReplyHandler(r, nullptr);
    lib.request_setDoneHandler(r, done_note);
    request_send(peer, r);
    turn_until("the done handler", [] { return event_was("done"); });
    all_come(peer);
    expect_text("handlers", events, "done");
    host_end();
}

void destroyed_before_leaving() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    request_send(peer, r);
    lib.request_destroy(r);
    all_come(peer);
    saw("the function runs");
    host_end();
}

void destroyed_before_leaving_with_handler() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    lib.request_setReplyHandler(r, reply_note);
    lib.request_setDoneHandler(r, done_note);
    request_send(peer, r);
    lib.request_destroy(r);
    all_come(peer);
    expect_text("handlers", events, "");
    host_end();
}

void destroyed_after_leaving() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    lib.request_setDoneHandler(r, done_note);
    request_send(peer, r);
    call_one_way(peer, "again", 1);
    line_hear_in_turns('r'); // it has left
    lib.request_destroy(r);
    line_say('g');
    all_come(peer);
    expect_text("handlers", events, "");
    host_end();
}

int said_when_it_ran(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    line_say('r');
    line_hear('g');
    return answer_twofold(call, arguments, return_value);
}

void destroyed_after_leaving_serve() {
    on_run = said_when_it_ran;
    far_plain();
}

void several() {
    peer_t *peer = far_connect();
    static unsigned done;
    for (unsigned i = 0; i < 100; i++) {
        request_t *r = request_make();
        lib.request_setDoneHandler(r, [](request_t *request) {
            done++;
            lib.request_destroy(request);
        });
        request_send(peer, r);
    }
    turn_until("100 done handlers", [] { return done >= 100; });
    all_come(peer);
    expect_number("done", done, 100);
    host_end();
}

constexpr char kReply[] = "It runs once for each item and once more with a null item when the reply is complete or the "
                          "peer has closed; in that last call its owner destroys the request.";
constexpr char kDone[] = "It runs exactly once, also when the peer closes: the reply then holds one error item.";

constexpr Check kChecks[] = {
    {"handlers.reply", kMust, kReply, reply_handler, serve, 0, false},
    {"handlers.done", kMust, kDone, done_handler, serve, 0, false},
    {"handlers.both", kMust,
     "With both handlers the done handler runs last, unless the reply handler has destroyed the request.", both, serve,
     0, false},
    {"handlers.destroyed_early", kMust, "Destroying it earlier suppresses the rest.", destroyed_early, serve, 0, false},
    {"handlers.send_another", kMust, "Allowed inside a handler of r.", sends_in_handler, serve, 0, false},
    {"handlers.replaced", Level::should, "A later one replaces it; null takes it away.", replaced, serve, 0, false},
    {"handlers.destroyed_before_leaving", kMust,
     "A request destroyed before it has left, without a handler, leaves as a one-way call: no reply is sent for it.",
     destroyed_before_leaving, serve_and_count, 0, false},
    {"handlers.destroyed_before_leaving_with_one", kMust,
     "With a handler it leaves as any other; the reply is dropped, and no handler runs.",
     destroyed_before_leaving_with_handler, serve_and_count, 0, false},
    {"handlers.destroyed_after_leaving", kMust, "Destroying it earlier suppresses the rest.", destroyed_after_leaving,
     destroyed_after_leaving_serve, 0, false},
    {"handlers.several", kMust, kDone, several, serve, 0, false},
};

} // namespace

const Group kHandlers = group_of(kChecks);

} // namespace conformance

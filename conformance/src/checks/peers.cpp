// SPDX-License-Identifier: MIT
// Handles of peers: what answers no, and to whom they belong.
#include "far.h"
#include "groups.h"
#include "request.h"

#include <stdio.h>
#include <string.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

unsigned closes;

int closed_count(peer_t *, int, void *) {
    closes++;
    return 0;
}

void serve_until_told() {
    far_listen();
    far_serve_until('e');
    host_end();
}

void nobody_listens() {
    char path[300];
    char uri[400];
    host_begin();
    snprintf(uri, sizeof uri, "kex://ipc:[%s]", folder_path(path, "nobody"));
    expect(lib.kex_client_connect(bus, uri) == nullptr, "a peer where nothing stands");
    for (const char *wrong : {"", "nonsense", "kex://ipc:", "kex://ipc:[]", "kex://tcp:[/tmp]", "kex://ipc:[/tmp"})
        expect(lib.kex_client_connect(bus, wrong) == nullptr, "a peer for \"%s\"", wrong);
    saw("null seven times");
    host_end();
}

peer_t *closed_peer() {
    peer_t *peer = far_connect();
    expect(lib.peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, closed_count) != 0,
           "peer_setEventHandler answers no");
    call_and_wait(peer, "run", 1);
    line_say('e');
    turn_until("the close event", [] { return closes > 0; });
    return peer;
}

void closed_answers_no() {
    peer_t *peer = closed_peer();
    request_t *r = request_make();
    lib.request_setDoneHandler(r, [](request_t *) { fail("a handler ran after a no"); });
    expect_number("kex_sendRequest", lib.kex_sendRequest(bus, peer, r), 0);
    lib.request_destroy(r);
    expect_number("peer_setEventHandler", lib.peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, closed_count), 0);
    turn_for(50);
    expect_number("close events", closes, 1);
    host_end();
}

// The second process listens again under the same path, so that everything is as it was but for the handle.
void serve_twice() {
    far_listen();
    far_serve_until('e');
    host_end();
    far_plain();
}

void never_reused() {
    peer_t *before = closed_peer();
    line_hear('!');
    peer_t *now[4];
    for (unsigned i = 0; i < 4; i++) {
        now[i] = far_connect_again();
        expect(now[i] != before, "the handle of connection %u is that of one that has closed", i + 2);
        for (unsigned other = 0; other < i; other++)
            expect(now[i] != now[other], "two connections have one handle");
    }
    call_and_wait(now[0], "run", 1);
    request_t *r = request_make();
    expect_number("kex_sendRequest to the closed one", lib.kex_sendRequest(bus, before, r), 0);
    lib.request_destroy(r);
    host_end();
}

int closed_with_data(peer_t *peer, int event_code, void *userdata) {
    expect_number("event", event_code, PEER_EVENT_CLOSED);
    expect(userdata == &closes, "another userdata");
    expect(peer != nullptr, "no peer");
    closes++;
    return 1; // whatever it answers
}

int closed_wrongly(peer_t *, int, void *) {
    fail("a handler runs that was replaced");
}

void later_one_replaces() {
    peer_t *peer = far_connect();
    lib.peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, closed_wrongly);
    expect(lib.peer_setEventHandler(peer, PEER_EVENT_CLOSED, &closes, closed_with_data) != 0,
           "peer_setEventHandler answers no to the second handler");
    call_and_wait(peer, "run", 1);
    line_say('e');
    turn_until("the close event", [] { return closes > 0; });
    turn_for(50);
    expect_number("close events", closes, 1);
    host_end();
}

void taken_away() {
    peer_t *peer = far_connect();
    lib.peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, closed_wrongly);
    lib.peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, nullptr);
    lib.kex_onPeerClosed(
        bus, [](kex_t *, peer_t *, void *) { closes++; }, nullptr);
    call_and_wait(peer, "run", 1);
    line_say('e');
    turn_until("the end of the peer", [] { return closes > 0; });
    saw("no handler ran");
    host_end();
}

void listener() {
    char path[300];
    host_begin();
    peer_t *peer = lib.connection_listenOnIPC(lib.kex_connection(bus), folder_path(path, "here"));
    expect(peer != nullptr, "connection_listenOnIPC answers null");
    request_t *r = request_make();
    lib.request_setDoneHandler(r, [](request_t *) { fail("a handler ran after a no"); });
    expect_number("kex_sendRequest", lib.kex_sendRequest(bus, peer, r), 0);
    lib.request_destroy(r);
    expect_number("peer_setEventHandler",
                  lib.peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, closed_wrongly) != 0, 1);
    turn_for(50);
    host_end();
}

// A connection to a listener ends; the listener does not.
void serve_listener() {
    char path[300];
    host_begin();
    peer_t *peer = lib.connection_listenOnIPC(lib.kex_connection(bus), folder_path(path, "bus"));
    expect(peer != nullptr, "connection_listenOnIPC answers null");
    lib.peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, closed_wrongly);
    lib.kex_onPeerClosed(
        bus,
        [](kex_t *, peer_t *closed, void *listening) {
            expect(closed != listening, "the close event of a connection comes with the handle of its listener");
            closes++;
        },
        peer);
    line_say('!');
    far_serve();
    turn_until("the end of two connections", [] { return closes == 2; });
    host_end();
}

void connects_and_goes() {
    peer_t *peer = far_connect();
    call_and_wait(peer, "run", 1);
    host_end();
    bus = lib.kex_create("first again");
    call_and_wait(far_connect_again(), "run", 1);
    saw("one connection after the other");
    process_vanish();
}

void on_any_peer() {
    static peer_t *closed;
    peer_t *peer = far_connect();
    static int userdata;
    lib.peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, [](peer_t *, int, void *) {
        event("own");
        return 0;
    });
    lib.kex_onPeerClosed(
        bus,
        [](kex_t *on, peer_t *ended, void *data) {
            expect(on == bus && data == &userdata, "another bus or userdata");
            closed = ended;
            event("any");
        },
        &userdata);
    call_and_wait(peer, "run", 1);
    line_say('e');
    turn_until("the end of the peer", [] { return event_was("any"); });
    turn_for(50);
    expect_text("handlers", events, "own any");
    expect(closed == peer, "another handle");
    host_end();
}

constexpr char kHandle[] = "The handle of one connection; never used for another one.";
constexpr char kClosedHandle[] = "The handle of a closed peer still compares equal to what calls gave; every operation "
                                 "on it answers no.";
constexpr char kReplaces[] = "One handler per event; a later one replaces it.";

constexpr Check kChecks[] = {
    {"peers.nobody_listens", kMust, "@return the peer, or NULL.", nobody_listens, nullptr, 0, false, true},
    {"peers.closed_answers_no", kMust, kClosedHandle, closed_answers_no, serve_until_told, 0, false},
    {"peers.never_reused", kMust, kHandle, never_reused, serve_twice, 0, false},
    {"peers.later_one_replaces", kMust, kReplaces, later_one_replaces, serve_until_told, 0, false},
    {"peers.taken_away", Level::should, kReplaces, taken_away, serve_until_told, 0, false},
    {"peers.listener", kMust, "Sending to it answers no. It takes a handler, whose event does not come", listener,
     nullptr, 0, false, true},
    {"peers.listener_stays", kMust, "Sending to it answers no. It takes a handler, whose event does not come",
     connects_and_goes, serve_listener, 0, false},
    {"peers.on_any_peer", kMust, "Runs once per peer, after its last queued call and after its own handler",
     on_any_peer, serve_until_told, 0, false},
};

} // namespace

const Group kPeers = group_of(kChecks);

} // namespace conformance

// SPDX-License-Identifier: MIT
// A call that leaves, from its making to its last handler (kex.h, "Requests and replies"); also the caller's side of a
// call that arrived.
#ifndef KEX_REQUEST_H
#define KEX_REQUEST_H

#include "calls/peer.h"
#include "value/message.h"

namespace bus {

struct OutMessage;

enum class RequestState : uint8_t {
    fresh,
    queued, // may still become one-way
    left,   // the message is on its way
    answered,
    failed,  // the peer closed before it answered
    arrived, // not ours: the request of a call that runs here
};

} // namespace bus

// Its task runs the handlers once the reply is complete.
struct request : bus::Task, bus::Node<request> {
    bus::RequestState state;
    bool in_handler;
    bool destroyed; // inside a handler of its own
    uint32_t flags;
    uint32_t serial;
    uint32_t failures;  // of memory, before it was made: what is added to it is all there while they are no more
    int32_t process_id; // of the peer, once sent
    char *path;
    char *function;
    bus::Parameters parameters;
    bus::Calls *calls;        // once sent
    bus::Peer *peer;          // while queued or left
    bus::OutMessage *message; // while queued
    reply_t reply;
    bus::Peer *answered_by;   // while the reply waits for the handlers to run: it counts among what that peer has sent
    uint32_t reply_footprint; // what it counts
    uint32_t reply_descriptors;
    void *data;
    void (*reply_handler)(request_t *r, reply_item_t *item);
    void (*done_handler)(request_t *r);
};

namespace bus {

inline bool request_is_under_way(const request_t *r) {
    return r->state == RequestState::queued || r->state == RequestState::left;
}

// One for which memory lacks is not sent, and the connection ends: a call that is left out of a sequence leaves two
// tables that differ, while a new connection begins with none.
bool request_send(Calls *calls, peer_t *to, request_t *r);
// The message is on its way: too late to become one-way.
void request_sent(request_t *r);
// The message could not be sent after all.
void request_unsent(request_t *r, const char *why);
// All that the peer has not answered yet: its connection has ended.
void requests_fail(Peer *peer, const char *why);
// The peer goes away; replies of it may still wait for their handlers.
void requests_leave(Peer *peer);
// A reply has come; one that nobody expects any more is passed over. False: no memory.
bool request_answer(Peer *peer, const wire::Message &message, wire::Descriptors &descriptors);

} // namespace bus

#endif

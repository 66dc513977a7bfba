// SPDX-License-Identifier: MIT
// A call that leaves, from its making to its last handler; also the caller's side of a call that arrived.
#ifndef KEX_REQUEST_H
#define KEX_REQUEST_H

#include "transport/connection.h"
#include "value/message.h"

namespace bus {

enum class RequestState : uint8_t {
    fresh,
    queued, // may still become one-way
    left,   // the packet is on its way
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
    char *path;
    char *function;
    bus::Parameters parameters;
    kex_t *bus;
    bus::Link *link;        // while queued or left
    bus::OutPacket *packet; // while queued
    reply_t reply;
    void *data;
    void (*reply_handler)(request_t *r, reply_item_t *item);
    void (*done_handler)(request_t *r);
};

namespace bus {

// The packet is on its way: too late to become one-way.
void request_left(request_t *r);
// Completes a request with one error item.
void request_fail(request_t *r, uint32_t code, const char *description, const char *info);
// A reply has come; one that nobody expects any more is passed over. False: no memory.
bool request_answered(Link *link, const wire::Message &message, wire::Descriptors &descriptors);

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// Implements request.h: building, sending, and handing over what comes back.
#include "calls/request.h"
#include "base/closer.h"
#include "base/faults.h"
#include "base/trace.h"
#include "transport/output.h"
#include "transport/send.h"
#include "value/variant.h"

#include <string.h>

using namespace bus;

namespace {

bool request_has_handler(const request_t *r) {
    return r->reply_handler != nullptr || r->done_handler != nullptr;
}

void request_free(request_t *r) {
    parameters_clear(r->parameters);
    reply_clear(&r->reply);
    free(r);
}

// The reply of a request with handlers is the peer's to answer for until they run; another one is the host's own.
void reply_count(request_t *r, Peer *peer, uint32_t descriptors) {
    if (!request_has_handler(r))
        return;
    r->answered_by = peer;
    r->reply_footprint = reply_footprint(&r->reply);
    r->reply_descriptors = descriptors;
    peer->answered.push(r);
    account_add(peer->connection->received, r->reply_footprint, descriptors);
}

void reply_uncount(request_t *r) {
    if (r->answered_by == nullptr)
        return;
    r->answered_by->answered.remove(r);
    account_remove(r->answered_by->connection->received, r->reply_footprint, r->reply_descriptors);
    r->answered_by = nullptr;
}

// Runs the handlers. Any of them may destroy the request, which keeps its memory until the last has returned. They also
// run when the bus goes away before their turn: they own the request.
void request_run(Task *task) {
    request_t *r = static_cast<request_t *>(task);
    const int32_t charged = closings_charge(r->answered_by != nullptr ? r->answered_by->connection->process_id : 0);
    reply_uncount(r);
    const TraceCause cause(r->process_id);
    r->in_handler = true;
    reply_item_t *item = r->reply.first;
    while (r->reply_handler != nullptr && !r->destroyed) {
        r->reply_handler(r, item);
        if (item == nullptr)
            break;
        item = item->next;
    }
    if (r->done_handler != nullptr && !r->destroyed)
        r->done_handler(r);
    r->in_handler = false;
    if (r->destroyed)
        request_free(r);
    closings_charge(charged);
}

void request_complete(request_t *r, RequestState state) {
    Lane *lane = &r->peer->connection->lane;
    pending_remove(r->peer->pending, r);
    r->peer = nullptr;
    r->message = nullptr;
    r->state = state;
    if (request_has_handler(r))
        lane_push(lane, r);
}

void request_fail(request_t *r, uint32_t code, const char *description, const char *info) {
    reply_clear(&r->reply);
    reply_append_error(&r->reply, code, text_of(description), text_of(info));
    request_complete(r, RequestState::failed);
}

// The request that waits for the reply of this serial, or null.
request_t *request_find(const Peer *peer, uint32_t serial) {
    request_t *r = pending_find(peer->pending, serial);
    return r != nullptr && r->state == RequestState::left ? r : nullptr;
}

// Null, and why.
OutMessage *request_write(const request_t *r, Connection *connection, const char *&why) {
    wire::Writer writer = output_begin(connection);
    const Text path = {r->path, static_cast<uint32_t>(r->function - r->path - 1)}; // one stands behind the other
    wire::call_write(writer, r->serial, r->flags, path, text_of(r->function), r->parameters);
    why = writer.why != nullptr                ? writer.why
          : connection_is_writable(connection) ? "the queue is full"
                                               : "it receives no more";
    return output_add(connection, writer, 1);
}

// Stands for each request that there was no memory for, so that its sending can tell the peer.
request_t lost_request;

// One block for all that most requests need: behind it room for parameters, then its texts. Null: no memory.
constexpr size_t kRequestHead = (sizeof(request_t) + alignof(Parameter) - 1) / alignof(Parameter) * alignof(Parameter);
request_t *request_take(const char *path, size_t path_size, const char *function, size_t function_size) {
    void *memory = memory_take(kRequestHead + kParametersRoom + path_size + function_size);
    if (memory == nullptr)
        return nullptr;
    request_t *r = static_cast<request_t *>(memset(memory, 0, sizeof(request_t)));
    uint8_t *room = static_cast<uint8_t *>(memory) + kRequestHead;
    parameters_begin(r->parameters, room, kParametersRoom);
    r->path = reinterpret_cast<char *>(room + kParametersRoom);
    r->function = r->path + path_size;
    memcpy(r->path, path, path_size);
    memcpy(r->function, function, function_size);
    return r;
}

bool request_is_whole(const request_t *r) {
    return r != &lost_request && r->failures == memory_failures();
}

// With its serial. Null: it cannot be queued (traced).
OutMessage *request_queue(request_t *r, Peer *peer) {
    const char *why = fault_is_due(Fault::refuse) ? "a fault was asked for" : pending_reserve(peer->pending, r->serial);
    OutMessage *message = why == nullptr ? request_write(r, peer->connection, why) : nullptr;
    if (message == nullptr) {
        char title[kTitleSize];
        note_about(peer->connection->process_id, ZIL_TRACE_WARNING, "request '%s' of '%s' to %s not queued: %s",
                   r->function, r->path, connection_title(peer->connection, title, sizeof title), why);
    }
    return message;
}

} // namespace

namespace bus {

bool request_send(Calls *calls, peer_t *to, request_t *r) {
    Peer *peer = peer_open(to);
    if (peer == nullptr || peer->calls != calls || r->state != RequestState::fresh)
        return false;
    OutMessage *message = request_is_whole(r) ? request_queue(r, peer) : nullptr;
    if (message == nullptr && !request_is_whole(r))
        connection_refuse(peer->connection, "a request to it is lost: out of memory");
    if (message == nullptr)
        return false;
    message->request = r;
    r->message = message;
    r->calls = calls;
    r->peer = peer;
    r->process_id = peer->connection->process_id;
    r->state = RequestState::queued;
    pending_add(peer->pending, r);
    parameters_clear(r->parameters); // they are in the message
    connection_flush_if_much(peer->connection);
    return true;
}

void request_sent(request_t *r) {
    r->message = nullptr;
    r->state = RequestState::left;
}

void request_unsent(request_t *r, const char *why) {
    request_fail(r, KEX_ERROR_TOO_LARGE, "Packet not sent", why);
}

void requests_fail(Peer *peer, const char *why) {
    while (peer->pending.requests.first != nullptr)
        request_fail(peer->pending.requests.first, KEX_ERROR_PEER_CLOSED, "Peer closed", why);
}

void requests_leave(Peer *peer) {
    while (peer->answered.first != nullptr)
        reply_uncount(peer->answered.first);
}

bool request_answer(Peer *peer, const wire::Message &message, wire::Descriptors &descriptors) {
    request_t *r = request_find(peer, message.serial);
    if (r == nullptr)
        return true;
    if (!wire::reply_read(message, &descriptors, &r->reply))
        return false;
    request_complete(r, RequestState::answered);
    reply_count(r, peer, descriptors.count);
    return true;
}

} // namespace bus

request_t *request_create_executeFunction(const char *path, const char *function, uint32_t flags) {
    if (path == nullptr || function == nullptr || *path == '\0' || *function == '\0')
        return nullptr;
    const size_t path_length = strnlen(path, kMaxPath + 1);
    const size_t function_length = strnlen(function, kMaxPath + 1);
    if (path_length > kMaxPath || function_length > kMaxPath)
        return nullptr;
    const uint32_t failures = memory_failures();
    request_t *r = request_take(path, path_length + 1, function, function_length + 1);
    if (r == nullptr)
        return &lost_request;
    r->failures = failures;
    r->run = request_run;
    r->drop = request_run;
    r->flags = flags;
    return r;
}

int request_addParameter(request_t *r, const char *name, const variant_t *value) {
    if (r == nullptr || r == &lost_request || name == nullptr || value == nullptr || r->state != RequestState::fresh)
        return 0;
    if (r->parameters.count == kMaxArguments || value_nesting(value) > kMaxNesting)
        return 0;
    return parameters_add(r->parameters, name, value);
}

void request_setReplyHandler(request_t *r, void (*handler)(request_t *r, reply_item_t *item)) {
    if (r != nullptr && r != &lost_request)
        r->reply_handler = handler;
}

void request_setDoneHandler(request_t *r, void (*handler)(request_t *r)) {
    if (r != nullptr && r != &lost_request)
        r->done_handler = handler;
}

void request_setData(request_t *r, void *data) {
    if (r != nullptr && r != &lost_request)
        r->data = data;
}

void *request_data(request_t *r) {
    return r != nullptr ? r->data : nullptr;
}
uint32_t request_attributes(request_t *r) {
    return r != nullptr ? r->flags : 0;
}

reply_t *request_reply(request_t *r) {
    if (r == nullptr || r->state == RequestState::fresh || request_is_under_way(r))
        return nullptr;
    return &r->reply;
}

void request_destroy(request_t *r) {
    // The request of a running call belongs to the bus.
    if (r == nullptr || r->state == RequestState::arrived || r == &lost_request)
        return;
    if (r->state == RequestState::queued && !request_has_handler(r))
        wire::call_make_one_way(r->message->data);
    if (r->message != nullptr)
        r->message->request = nullptr;
    if (r->peer != nullptr) {
        pending_remove(r->peer->pending, r);
        r->peer = nullptr;
    }
    reply_uncount(r);
    task_remove(r);
    if (r->in_handler)
        r->destroyed = true;
    else
        request_free(r);
}

// SPDX-License-Identifier: MIT
// Requests (kex.h, "Requests and replies"): building, sending, and handing over what comes back.
#include "calls/request.h"
#include "base/trace.h"
#include "loop/loop.h"
#include "value/variant.h"

#include <string.h>

using namespace bus;

namespace {

bool has_handler(const request_t *r) {
    return r->reply_handler != nullptr || r->done_handler != nullptr;
}
bool is_under_way(const request_t *r) {
    return r->state == RequestState::queued || r->state == RequestState::left;
}

void release(request_t *r) {
    parameters_clear(r->parameters);
    reply_clear(&r->reply);
    free(r->path);
    free(r->function);
    free(r);
}

// Runs the handlers. Any of them may destroy the request, which keeps its memory until the last has returned.
void run(Task *task) {
    request_t *r = static_cast<request_t *>(task);
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
        release(r);
}

// The bus goes away. Handlers still run: they own the request.
void drop(Task *task) {
    run(task);
}

void complete(request_t *r, RequestState state) {
    r->link->pending.remove(r);
    r->link = nullptr;
    r->packet = nullptr;
    r->state = state;
    if (has_handler(r))
        task_push(&r->bus->loop, r);
}

wire::Writer write_call(Link *link, const request_t *r, uint32_t serial) {
    wire::Writer writer = wire::packet_begin(link->bus->outgoing, link->packet_limit);
    wire::call_write(writer, serial, r->flags, r->path, r->function, r->parameters);
    return writer;
}

uint32_t next_serial(Link *link) {
    link->last_serial += link->last_serial == UINT32_MAX ? 2 : 1; // 0 is no serial
    return link->last_serial;
}

} // namespace

namespace bus {

void request_left(request_t *r) {
    r->packet = nullptr;
    r->state = RequestState::left;
}

void request_fail(request_t *r, uint32_t code, const char *description, const char *info) {
    reply_clear(&r->reply);
    reply_append_error(&r->reply, code, text_of(description), text_of(info));
    complete(r, RequestState::failed);
}

bool request_answered(Link *link, const wire::Message &message, wire::Descriptors &descriptors) {
    request_t *r = link->pending.first;
    while (r != nullptr && (r->serial != message.serial || r->state != RequestState::left))
        r = List<request_t>::after(r);
    if (r == nullptr)
        return true;
    if (!wire::reply_read(message, &descriptors, &r->reply))
        return false;
    complete(r, RequestState::answered);
    return true;
}

} // namespace bus

request_t *request_create_executeFunction(const char *path, const char *function, uint32_t flags) {
    if (path == nullptr || function == nullptr || *path == '\0' || *function == '\0')
        return nullptr;
    if (strnlen(path, kMaxPath + 1) > kMaxPath || strnlen(function, kMaxPath + 1) > kMaxPath)
        return nullptr;
    request_t *r = make<request_t>();
    if (r == nullptr)
        return nullptr;
    r->run = run;
    r->drop = drop;
    r->flags = flags;
    r->path = strdup(path);
    r->function = strdup(function);
    if (r->path == nullptr || r->function == nullptr) {
        release(r);
        return nullptr;
    }
    return r;
}

int request_addParameter(request_t *r, const char *name, const variant_t *value) {
    if (r == nullptr || name == nullptr || value == nullptr)
        return 0;
    if (r->state != RequestState::fresh || r->parameters.count == kMaxArguments || value_nesting(value) > kMaxNesting)
        return 0;
    return parameters_add(r->parameters, name, value);
}

void request_setReplyHandler(request_t *r, void (*handler)(request_t *r, reply_item_t *item)) {
    if (r != nullptr)
        r->reply_handler = handler;
}

void request_setDoneHandler(request_t *r, void (*handler)(request_t *r)) {
    if (r != nullptr)
        r->done_handler = handler;
}

void request_setData(request_t *r, void *data) {
    if (r != nullptr)
        r->data = data;
}

void *request_data(request_t *r) {
    return r != nullptr ? r->data : nullptr;
}
uint32_t request_attributes(request_t *r) {
    return r != nullptr ? r->flags : 0;
}

reply_t *request_reply(request_t *r) {
    if (r == nullptr || r->state == RequestState::fresh || is_under_way(r))
        return nullptr;
    return &r->reply;
}

void request_destroy(request_t *r) {
    // The request of a running call belongs to the bus.
    if (r == nullptr || r->state == RequestState::arrived)
        return;
    if (r->state == RequestState::queued && !has_handler(r))
        wire::call_make_one_way(r->packet->data);
    if (r->packet != nullptr)
        r->packet->request = nullptr;
    if (r->link != nullptr) {
        r->link->pending.remove(r);
        r->link = nullptr;
    }
    if (List<Task>::holds(r))
        r->bus->loop.tasks.remove(r);
    if (r->in_handler)
        r->destroyed = true;
    else
        release(r);
}

int kex_sendRequest(kex_t *bus, peer_t *peer, request_t *r) {
    Link *link = open_link(peer);
    if (bus == nullptr || r == nullptr || link == nullptr || link->bus != bus || r->state != RequestState::fresh)
        return 0;
    uint32_t serial = next_serial(link);
    wire::Writer writer = write_call(link, r, serial);
    const char *why = writer.why;
    OutPacket *packet = link_queue(link, writer, 1);
    if (packet == nullptr) {
        char title[kTitleSize];
        note(ZIL_TRACE_WARNING, "request '%s' of '%s' to %s not queued: %s", r->function, r->path,
             link_title(link, title, sizeof title), why != nullptr ? why : "the queue is full");
        return 0;
    }
    packet->request = r;
    r->packet = packet;
    r->bus = bus;
    r->link = link;
    r->serial = serial;
    r->state = RequestState::queued;
    link->pending.push(r);
    if (link->out_bytes > kFlushBytes && link->retry_at == 0)
        link_flush(link);
    return 1;
}

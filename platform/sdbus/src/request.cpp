// SPDX-License-Identifier: MIT
// Requests that leave, their handlers, and waiting for what comes back (kex.h, "Requests and replies").
#include "bus.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <unordered_map>

using namespace sdbus;

namespace {

constexpr int kLookForStop = 100; // milliseconds of a wait, until it looks whether it is to end

std::unordered_map<uint64_t, request_t *> requests; // those that exist: a handler may destroy its own
uint64_t last_request = 0;

// A call is: path, function, flags, and named values.
int call_write(sd_bus_message *message, const request_t &request) {
    Writer writer{message};
    writer.bytes(request.path);
    writer.bytes(request.function);
    writer.number('u', &request.flags);
    writer.open('a', "(ay(yv))");
    for (const auto &[name, value] : request.parameters) {
        writer.open('r', "ay(yv)");
        writer.bytes(name);
        writer.value(&value);
        writer.close();
    }
    writer.close();
    return writer.result;
}

Weight call_weigh(const request_t &request) {
    Weight weight;
    weight.bytes += request.path.size() + request.function.size();
    for (const auto &[name, value] : request.parameters) {
        weight.bytes += name.size();
        value_weigh(&value, weight);
    }
    return weight;
}

// Waits until the connection can go on, and not longer.
void connection_sleep(const Connection &connection, int milliseconds) {
    const int events = sd_bus_get_events(connection.link);
    pollfd fds[2] = {{connection.fd, POLLIN, 0}, {connection.out_fd, POLLOUT, 0}};
    poll(fds, events > 0 && (events & POLLOUT) != 0 ? 2 : 1, milliseconds);
}

// Null, or why the peer gets nothing more now.
const char *room_refuse(const Connection &connection, const request_t &request, const Weight &weight) {
    if (request.parameters.size() > kMaxArguments)
        return "it has too many arguments";
    if (connection.pending.size() + connection.output.size() >= kMaxPending)
        return "too many requests have no answer";
    if (connection.queued.bytes + weight.bytes > kMaxQueuedBytes)
        return "the queue is full";
    return connection.queued.descriptors + weight.descriptors > kMaxDescriptors ? "too many descriptors" : nullptr;
}

// When a wait ends; a time beyond the clock's range never comes, and one before its beginning has passed.
uint64_t wait_end(const timeval *timeout) {
    constexpr int64_t kLongest = INT64_MAX / 2'000'000'000;
    if (timeout == nullptr || timeout->tv_sec > kLongest)
        return UINT64_MAX;
    const int64_t seconds = std::max<int64_t>(timeout->tv_sec, 0);
    const int64_t rest = timeout->tv_sec < 0 ? 0 : std::clamp<int64_t>(timeout->tv_usec, 0, 1'000'000);
    return now() + static_cast<uint64_t>(seconds * 1'000'000'000 + rest * 1000);
}

bool has_handler(const request_t &request) {
    return request.reply_handler != nullptr || request.done_handler != nullptr;
}

} // namespace

namespace sdbus {

request_t *request_find(uint64_t id) {
    const auto found = requests.find(id);
    return found != requests.end() ? found->second : nullptr;
}

void request_end(uint64_t id) {
    request_t *request = request_find(id);
    if (request == nullptr || request->state != request::sent)
        return;
    reply_add(request->reply, KEX_ERROR_PEER_CLOSED, "The peer has closed", "");
    request->state = request::failed;
    event_push(request->connection->bus, {Event::reply, request->connection, nullptr, id});
}

// The reply handler for each item and for the end, then the done handler; any of them may destroy the request.
void request_run_handlers(uint64_t id) {
    request_t *request = request_find(id);
    if (request == nullptr)
        return;
    for (size_t i = 0; request->reply_handler != nullptr && i < request->reply.items.size(); i++) {
        request->reply_handler(request, request->reply.items[i].get());
        if (request_find(id) == nullptr)
            return;
    }
    if (request->reply_handler != nullptr)
        request->reply_handler(request, nullptr);
    if (request_find(id) != nullptr && request->done_handler != nullptr)
        request->done_handler(request);
}

bool reply_receive(Connection &connection, sd_bus_message *message) {
    uint64_t cookie = 0;
    sd_bus_message_get_reply_cookie(message, &cookie);
    const auto found = connection.pending.find(cookie);
    if (found == connection.pending.end())
        return true; // its request has been destroyed
    const uint64_t id = found->second;
    connection.pending.erase(found);
    request_t *request = request_find(id);
    if (request == nullptr)
        return true;
    if (reply_read(message, request->reply) < 0) {
        request->reply.items.clear();
        request_end(id);
        return false;
    }
    request->state = request::answered;
    connection.received++;
    event_push(connection.bus, {Event::reply, request->connection, nullptr, id});
    return true;
}

} // namespace sdbus

request_t *request_create_executeFunction(const char *path, const char *function, uint32_t flags) {
    const bool named = path != nullptr && *path != '\0' && strlen(path) <= kMaxPath && function != nullptr &&
                       *function != '\0' && strlen(function) <= kMaxPath;
    if (!named)
        return nullptr;
    request_t *request = new request_t{++last_request, path, function, flags, {}};
    requests[request->id] = request;
    return request;
}

int request_addParameter(request_t *r, const char *name, const variant_t *value) {
    if (r == nullptr || name == nullptr || *name == '\0' || value == nullptr)
        return 0;
    if (value_copy(&r->parameters.emplace_back(name, Value()).second, value))
        return 1;
    r->parameters.pop_back();
    return 0;
}

void request_setReplyHandler(request_t *r, void (*handler)(request_t *, reply_item_t *)) {
    if (r != nullptr)
        r->reply_handler = handler;
}
void request_setDoneHandler(request_t *r, void (*handler)(request_t *)) {
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
    const bool is_there = r != nullptr && (r->state >= request::answered || r->reply.being_built);
    return is_there ? &r->reply : nullptr;
}

void request_destroy(request_t *r) {
    if (r == nullptr || requests.erase(r->id) == 0) // that of a call which has arrived is the call's
        return;
    if (r->state == request::sent) {
        for (Outgoing &outgoing : r->connection->output) {
            if (outgoing.request == r->id)
                outgoing.wants_reply = has_handler(*r);
        }
        std::erase_if(r->connection->pending, [r](const auto &entry) { return entry.second == r->id; });
    }
    delete r;
}

int kex_sendRequest(kex_t *bus, peer_t *peer, request_t *r) {
    const ConnectionPointer connection = connection_of(peer);
    const bool can = bus != nullptr && r != nullptr && request_find(r->id) == r && r->state == request::made &&
                     connection != nullptr && !connection->closed && !connection->listener && connection->bus == bus;
    if (!can)
        return 0;
    const Weight weight = call_weigh(*r);
    Message message = message_create(*connection, "Call");
    const char *why = room_refuse(*connection, *r, weight);
    if (why == nullptr && call_write(message.get(), *r) < 0)
        why = "it cannot be written";
    if (why != nullptr) {
        bus::note_about(connection->process, ZIL_TRACE_WARNING,
                        "request '%s' of '%s' to '%s' (process %d) not queued: %s", r->function.c_str(),
                        r->path.c_str(), connection->process_name.c_str(), static_cast<int>(connection->process), why);
        return 0;
    }
    r->reply.items.clear();
    r->state = request::sent;
    r->connection = connection;
    connection_queue(*connection, {std::move(message), r->id, true, weight});
    return 1;
}

int kex_waitForReply(kex_t *bus, request_t *r, const struct timeval *timeout) {
    if (bus == nullptr || r == nullptr || r->connection == nullptr)
        return 0;
    const ConnectionPointer connection = r->connection;
    const uint64_t end = wait_end(timeout);
    if (r->state == request::sent)
        connections_flush(bus); // to everybody: what was sent before the wait must not lie here until it ends
    while (r->state == request::sent && !connection->closed && bus->stopped == 0) {
        connection_flush(*connection);
        const bool all = connection_read(connection, kMessagesPerTurn);
        if (connection->received > kMaxReceived)
            connection_end(*connection, "it sent too many calls while its reply was waited for");
        const uint64_t left = end - std::min(end, now());
        if (r->state != request::sent || connection->closed || left == 0)
            break;
        if (all)
            connection_sleep(*connection, static_cast<int>(std::min<uint64_t>(left / 1'000'000 + 1, kLookForStop)));
    }
    turn_wish(bus); // what else was read, is to be run
    return r->state == request::answered;
}

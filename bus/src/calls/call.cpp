// SPDX-License-Identifier: MIT
// Implements call.h.
#include "calls/call.h"
#include "base/closer.h"
#include "base/footprint.h"
#include "base/trace.h"
#include "calls/call_reply.h"
#include "calls/listing.h"
#include "calls/missed.h"
#include "calls/object.h"

#include <stdio.h>
#include <string.h>

using namespace bus;

namespace {

void call_free(function_call_t *call) {
    wire::descriptors_close(call->descriptors);
    reply_clear(&call->request.reply);
    free(call);
}

// What a call holds is the peer's to answer for until it has run.
void call_release(function_call_t *call) {
    account_remove(call->peer->connection->received, call->footprint, call->descriptors.count);
    call_free(call);
}

bool call_is_builtin(const wire::Call &call) {
    return text_equals(call.path, KEX_BUILTIN_PATH) && text_equals(call.function, KEX_BUILTIN_LIST);
}

void call_add_error(function_call_t *call, uint32_t code, const char *description, Text name) {
    char shown[kShownName];
    printable(shown, sizeof shown, name.bytes, name.length);
    reply_append_error(&call->request.reply, code, text_of(description), text_of(shown));
}

// The status adds nothing to the reply: that the function failed is known to this process only.
void call_tell_failed(const function_call_t *call, const wire::Call &parsed) {
    const Calls *calls = call->peer->calls;
    if (calls->failed_handler == nullptr)
        return;
    const Connection *connection = call->peer->connection;
    const kex_failed_call_t failed = {calls->bus,
                                      call->peer->handle,
                                      connection->name,
                                      connection->process_id,
                                      {parsed.path.bytes, parsed.path.length},
                                      {parsed.function.bytes, parsed.function.length}};
    calls->failed_handler(&failed, calls->failed_userdata);
}

// A function takes its time by the kernel's clock: whoever waits for it does so too.
int call_run_entry(function_call_t *call, argument_list_t *arguments, variant_t *value) {
    Loop *loop = call->peer->connection->transport->loop;
    const uint64_t begin = loop->looked_at;
    call->request.reply.being_built = true;
    const int status = arguments->function->entry(call, arguments, value);
    call->request.reply.being_built = false;
    const uint64_t took = loop_look(loop) - begin;
    char title[kCallTitle];
    if (took >= kLongCall)
        note(ZIL_TRACE_WARNING, "%s ran for %u.%u s: nothing else was done meanwhile",
             call_title(arguments->parsed, title, sizeof title), static_cast<unsigned>(took / kSecond),
             static_cast<unsigned>(took % kSecond / (100 * kMillisecond)));
    return status;
}

// A call that finds nothing is told to whoever set the two sides up.
void call_miss(function_call_t *call, const wire::Call &parsed, const char *why) {
    char title[kCallTitle];
    call->missed_told = missed_call_tell(call->peer, call_title(parsed, title, sizeof title), why);
}

// The object that is called and the function of its class; null after an error item.
object_t *call_find_target(function_call_t *call, argument_list_t *arguments) {
    const wire::Call &parsed = arguments->parsed;
    const Calls *calls = call->peer->calls;
    object_t *object = object_find(calls, parsed.path.bytes, parsed.path.length);
    if (object == nullptr || !object_is_callable(object)) {
        call_miss(call, parsed,
                  object == nullptr ? "there is no such object" : "the object is a template, or not committed");
        call_add_error(call, KEX_ERROR_NO_OBJECT, "No such object", parsed.path);
        return nullptr;
    }
    arguments->function = function_find(calls, object->class_name, parsed.function);
    if (arguments->function != nullptr)
        return object;
    char why[kShownName + 64] = "no such function is declared for objects without a class";
    if (*object->class_name != '\0')
        snprintf(why, sizeof why, "no such function is declared for class '%.64s'", object->class_name);
    call_miss(call, parsed, why);
    call_add_error(call, KEX_ERROR_NO_FUNCTION, "No such function", parsed.function);
    return nullptr;
}

bool call_may_run(const Calls *calls) {
    return calls->call_handler == nullptr || calls->call_handler(calls->bus, calls->call_userdata) != 0;
}

void call_run_function(function_call_t *call, argument_list_t *arguments, variant_t *value) {
    const wire::Call &parsed = arguments->parsed;
    Calls *calls = call->peer->calls;
    if (call_is_builtin(parsed)) {
        // Of one that has gone many calls may lie here yet, and others wait behind them.
        const bool is_read = !call->one_way && connection_is_writable(call->peer->connection);
        if (is_read && !listing_fill(calls, value))
            call_add_error(call, KEX_ERROR_TOO_LARGE, "The listing is too large", parsed.path);
        return;
    }
    object_t *object = call_find_target(call, arguments);
    if (object == nullptr)
        return;
    const TraceCause cause(call->peer->connection->process_id);
    call->object = object;
    object_pin(object);
    calls->running = arguments;
    if (!call_may_run(calls))
        call_add_error(call, KEX_ERROR_REFUSED, "Not allowed", parsed.function);
    else if (call_run_entry(call, arguments, value) == KEX_FUNCTION_FAILED)
        call_tell_failed(call, parsed);
    calls->running = nullptr;
    object_unpin(object);
}

// What its function could not read, make or answer is missing on one side: both begin anew on another connection.
void call_lose(const function_call_t *call) {
    Connection *connection = call->peer->connection;
    if (!connection->closed)
        connection_refuse(connection, "a call from it is lost: out of memory");
}

void call_run(Task *task) {
    function_call_t *call = static_cast<function_call_t *>(task);
    const int32_t charged = closings_charge(call->peer->connection->process_id);
    argument_list_t arguments;
    arguments.call = call;
    arguments.function = nullptr;
    wire::call_read(call->message, arguments.parsed); // it was validated when it came
    variant_t value;
    variant_initialize(&value, VARIANT_NONE);
    call->peer->queued.remove(call);
    call->peer->running = call;
    const uint32_t failures = memory_failures();
    call_run_function(call, &arguments, &value);
    call->peer->running = nullptr;
    if (memory_failures() != failures)
        call_lose(call);
    if (!call->one_way)
        call_send_reply(call, &value);
    else if (call->missed_told)
        call_send_miss(call);
    variant_cleanup(&value);
    call_release(call);
    closings_charge(charged);
}

void call_drop(Task *task) {
    call_free(static_cast<function_call_t *>(task));
}

const function_call_t *call_find(const Peer *peer, uint32_t serial) {
    if (peer->running != nullptr && peer->running->request.serial == serial)
        return peer->running;
    for (const function_call_t *call : peer->queued) {
        if (call->request.serial == serial)
            return call;
    }
    return nullptr;
}

// With its descriptors and its message behind it. Null: no memory.
static_assert(footprint(sizeof(function_call_t)) <= kMessageKeeping);
function_call_t *call_create(const wire::Message &message, wire::Descriptors &descriptors) {
    size_t fds_size = sizeof(int) * descriptors.count;
    const size_t whole = sizeof(function_call_t) + fds_size + message.size;
    void *memory = memory_take(whole);
    if (memory == nullptr)
        return nullptr;
    function_call_t *call = static_cast<function_call_t *>(memory);
    *call = {};
    call->footprint = footprint(whole);
    call->descriptors = {reinterpret_cast<int *>(call + 1), descriptors.count};
    memcpy(call->descriptors.fds, descriptors.fds, fds_size);
    descriptors.count = 0;
    uint8_t *copy = reinterpret_cast<uint8_t *>(call + 1) + fds_size;
    memcpy(copy, message.data, message.size);
    call->message = message;
    call->message.data = copy;
    return call;
}

} // namespace

namespace bus {

bool call_queue(Peer *peer, const wire::Message &message, wire::Descriptors &descriptors) {
    function_call_t *call = call_create(message, descriptors);
    if (call == nullptr)
        return false;
    call->run = call_run;
    call->drop = call_drop;
    call->peer = peer;
    call->one_way = message.kind == wire::kOneWayCall;
    call->request.state = RequestState::arrived;
    call->request.flags = message.flags;
    call->request.serial = message.serial;
    account_add(peer->connection->received, call->footprint, call->descriptors.count);
    peer->queued.push(call);
    lane_push(&peer->connection->lane, call);
    return true;
}

bool call_is_queued(const Peer *peer, uint32_t serial) {
    return call_find(peer, serial) != nullptr;
}

const char *call_title(const Peer *peer, uint32_t serial, char *buffer, size_t size) {
    const function_call_t *call = call_find(peer, serial);
    wire::Call parsed;
    wire::call_read(call->message, parsed);
    return call_title(parsed, buffer, size);
}

const char *call_title(const wire::Call &call, char *buffer, size_t size) {
    char path[kShownName];
    char function[kShownName];
    printable(path, sizeof path, call.path.bytes, call.path.length);
    printable(function, sizeof function, call.function.bytes, call.function.length);
    snprintf(buffer, size, "'%s' of '%s'", function, path);
    return buffer;
}

} // namespace bus

request_t *fcall_request(function_call_t *call) {
    return call != nullptr ? &call->request : nullptr;
}
object_t *fcall_object(function_call_t *call) {
    return call != nullptr ? call->object : nullptr;
}
peer_t *fcall_peer(function_call_t *call) {
    return call != nullptr ? call->peer->handle : nullptr;
}

// Nothing to do: functions end their call before they set their return value, so that the reply leaves, and the call's
// memory goes, when the function has returned.
void fcall_destroy(function_call_t *) {}

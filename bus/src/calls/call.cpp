// SPDX-License-Identifier: MIT
// Calls that arrive (kex.h, "Calls that arrive"): queued as they came, read by their function's getters, answered.
#include "calls/call.h"
#include "base/trace.h"
#include "calls/listing.h"
#include "calls/object.h"
#include "calls/request.h"
#include "loop/loop.h"
#include "value/variant.h"

#include <stdio.h>
#include <string.h>

using namespace bus;

// Its task runs the function.
struct function_call : Task {
    Link *link;
    object_t *object;
    request_t request; // the caller's side as the function sees it
    bool one_way;
    wire::Descriptors descriptors;
    wire::Message message; // a copy, behind this structure
};

// The arguments stay in the packet until a getter asks for one.
struct argument_list {
    function_call_t *call;
    const Function *function;
    wire::Call parsed;
};

namespace {

constexpr uint32_t kShortestArray = 1024;
constexpr size_t kShownName = 64;

void release(function_call_t *call) {
    wire::descriptors_close(call->descriptors);
    reply_clear(&call->request.reply);
    free(call);
}

bool is_builtin(const wire::Call &call) {
    return text_equals(call.path, KEX_BUILTIN_PATH) && text_equals(call.function, KEX_BUILTIN_LIST);
}

void add_error(function_call_t *call, uint32_t code, const char *description, Text name) {
    char shown[kShownName];
    printable(shown, sizeof shown, name.bytes, name.length);
    reply_append_error(&call->request.reply, code, text_of(description), text_of(shown));
}

void send_reply(function_call_t *call, const variant_t *value) {
    Link *link = call->link;
    if (link->closed)
        return;
    uint32_t serial = call->request.serial;
    wire::Writer writer = wire::packet_begin(link->bus->outgoing, link->packet_limit);
    wire::reply_write(writer, serial, &call->request.reply, value);
    if (writer.why != nullptr) {
        // Whoever called must not wait for ever because the answer cannot be sent.
        reply_clear(&call->request.reply);
        reply_append_error(&call->request.reply, KEX_ERROR_TOO_LARGE, text_of("The reply cannot be sent"),
                           text_of(writer.why));
        wire::packet_discard(writer);
        writer = wire::packet_begin(link->bus->outgoing, link->packet_limit);
        wire::reply_write(writer, serial, &call->request.reply, nullptr);
    }
    if (link_queue(link, writer, kReplyAllowance) == nullptr && !link->mute)
        link_refuse(link, "it does not read its replies");
    if (link->out_bytes > kFlushBytes && link->retry_at == 0)
        link_flush(link);
}

void call_function(function_call_t *call, argument_list_t *arguments, variant_t *value) {
    const wire::Call &parsed = arguments->parsed;
    kex_t *bus = call->link->bus;
    if (is_builtin(parsed)) {
        if (!listing_fill(bus, value))
            add_error(call, KEX_ERROR_TOO_LARGE, "The listing is too large", parsed.path);
        return;
    }
    object_t *object = object_find(bus, parsed.path.bytes, parsed.path.length);
    if (object == nullptr || !object_is_callable(object)) {
        add_error(call, KEX_ERROR_NO_OBJECT, "No such object", parsed.path);
        return;
    }
    arguments->function = function_find(bus, object, parsed.function.bytes, parsed.function.length);
    if (arguments->function == nullptr) {
        add_error(call, KEX_ERROR_NO_FUNCTION, "No such function", parsed.function);
        return;
    }
    call->object = object;
    object_pin(object);
    call->request.reply.being_built = true;
    arguments->function->entry(call, arguments, value); // its status adds nothing to the reply
    call->request.reply.being_built = false;
    object_unpin(object);
}

void forget(function_call_t *call) {
    call->link->in_calls--;
    call->link->in_bytes -= call->message.size;
    call->link->in_fds -= call->descriptors.count;
}

void run(Task *task) {
    function_call_t *call = static_cast<function_call_t *>(task);
    argument_list_t arguments;
    arguments.call = call;
    arguments.function = nullptr;
    wire::call_read(call->message, arguments.parsed); // it was validated when it came
    variant_t value;
    variant_initialize(&value, VARIANT_NONE);
    call->link->running = call;
    call_function(call, &arguments, &value);
    call->link->running = nullptr;
    if (!call->one_way)
        send_reply(call, &value);
    variant_cleanup(&value);
    forget(call);
    release(call);
}

void drop(Task *task) {
    release(static_cast<function_call_t *>(task));
}

const function_call_t *find(const Link *link, uint32_t serial) {
    if (link->running != nullptr && link->running->request.serial == serial)
        return link->running;
    for (Task *task = link->bus->loop.tasks.first; task != nullptr; task = List<Task>::after(task)) {
        if (task->run != run)
            continue;
        const function_call_t *call = static_cast<const function_call_t *>(task);
        if (call->link == link && call->request.serial == serial)
            return call;
    }
    return nullptr;
}

const wire::Argument *find_argument(const argument_list_t *a, const char *name, size_t length) {
    for (uint32_t i = 0; i < a->parsed.count; i++) {
        if (text_equals(a->parsed.arguments[i].name, name, length))
            return &a->parsed.arguments[i];
    }
    return nullptr;
}

// By its own name first, then by the other names its declaration gives it.
const wire::Argument *find_argument(const argument_list_t *a, const char *name) {
    size_t length = strlen(name);
    const wire::Argument *argument = find_argument(a, name, length);
    const char *names = argument == nullptr ? function_argument_names(a->function, name, length) : nullptr;
    while (names != nullptr && argument == nullptr) {
        size_t end = strcspn(names, "|");
        argument = find_argument(a, names, end);
        names = names[end] == '|' ? names + end + 1 : nullptr;
    }
    return argument;
}

enum class Presence { missing, without_value, present };

// Reads the argument into *value, which the caller cleans, when it is of a type that `wanted` accepts.
Presence read_argument(argument_list_t *a, const char *name, bool (*wanted)(uint32_t type), variant_t *value) {
    variant_initialize(value, VARIANT_NONE);
    const wire::Argument *argument = a != nullptr && name != nullptr ? find_argument(a, name) : nullptr;
    if (argument == nullptr)
        return Presence::missing;
    function_call_t *call = a->call;
    uint32_t type = wire::argument_type(call->message, *argument);
    if (type == VARIANT_NONE)
        return Presence::without_value;
    if (!wanted(type))
        return Presence::missing;
    bool read = wire::argument_read(call->message, *argument, &call->descriptors, value);
    return read ? Presence::present : Presence::missing;
}

bool is_text(uint32_t type) {
    return type == VARIANT_TEXT;
}
bool is_array(uint32_t type) {
    return type == VARIANT_BYTES;
}
bool is_list(uint32_t type) {
    return type == VARIANT_LIST;
}

bool is_integer(uint32_t type) {
    return type == VARIANT_INT16 || type == VARIANT_INT32 || type == VARIANT_UINT16 || type == VARIANT_UINT32;
}

template <class Number>
int get_number(argument_list_t *a, const char *name, Number *number, int (*convert)(const variant_t *, Number *)) {
    variant_t value;
    return number != nullptr && read_argument(a, name, is_integer, &value) == Presence::present &&
           convert(&value, number) != 0;
}

} // namespace

namespace bus {

bool call_arrived(Link *link, const wire::Message &message, wire::Descriptors &descriptors) {
    size_t fds_size = sizeof(int) * descriptors.count;
    function_call_t *call = static_cast<function_call_t *>(malloc(sizeof(function_call_t) + fds_size + message.size));
    if (call == nullptr)
        return false;
    *call = {};
    call->run = run;
    call->drop = drop;
    call->link = link;
    call->one_way = message.kind == wire::kOneWayCall;
    call->request.state = RequestState::arrived;
    call->request.flags = message.flags;
    call->request.serial = message.serial;
    call->descriptors = {reinterpret_cast<int *>(call + 1), descriptors.count};
    memcpy(call->descriptors.fds, descriptors.fds, fds_size);
    uint8_t *copy = reinterpret_cast<uint8_t *>(call + 1) + fds_size;
    memcpy(copy, message.data, message.size);
    call->message = message;
    call->message.data = copy;
    descriptors.count = 0;
    link->in_calls++;
    link->in_bytes += message.size;
    link->in_fds += call->descriptors.count;
    task_push(&link->bus->loop, call);
    return true;
}

bool call_is_queued(const Link *link, uint32_t serial) {
    return find(link, serial) != nullptr;
}

const char *call_title(const Link *link, uint32_t serial, char *buffer, size_t size) {
    const function_call_t *call = find(link, serial);
    if (call == nullptr)
        return "a call";
    wire::Call parsed;
    wire::call_read(call->message, parsed);
    char path[kShownName];
    char function[kShownName];
    printable(path, sizeof path, parsed.path.bytes, parsed.path.length);
    printable(function, sizeof function, parsed.function.bytes, parsed.function.length);
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
    return call != nullptr ? call->link->shell : nullptr;
}

// Nothing to do: functions end their call before they set their return value, so that the reply leaves, and the call's
// memory goes, when the function has returned.
void fcall_destroy(function_call_t *) {}

int argument_getChar(argument_list_t *a, const char *name, uint32_t, char **text) {
    variant_t value;
    if (text == nullptr)
        return 0;
    Presence presence = read_argument(a, name, is_text, &value);
    if (presence == Presence::missing)
        return 0;
    // The text moves out of the value: both are malloc's.
    *text = presence == Presence::present ? inside(&value)->text : nullptr;
    return 1;
}

int argument_getUInt16(argument_list_t *a, const char *name, uint32_t, uint16_t *value) {
    return get_number(a, name, value, variant_toUInt16);
}

int argument_getUInt32(argument_list_t *a, const char *name, uint32_t, uint32_t *value) {
    return get_number(a, name, value, variant_toUInt32);
}

int argument_getInt32(argument_list_t *a, const char *name, uint32_t, int32_t *value) {
    return get_number(a, name, value, variant_toInt32);
}

int argument_getByteArray(argument_list_t *a, const char *name, uint32_t, void **data, uint32_t *length) {
    variant_t value;
    if (data == nullptr || length == nullptr)
        return 0;
    Presence presence = read_argument(a, name, is_array, &value);
    if (presence == Presence::missing)
        return 0;
    if (presence == Presence::without_value) {
        *data = nullptr;
        *length = 0;
        return 1;
    }
    uint32_t size = inside(&value)->length;
    uint8_t *block = static_cast<uint8_t *>(calloc(1, size > kShortestArray ? size : kShortestArray));
    if (block != nullptr) {
        memcpy(block, inside(&value)->bytes, size);
        *data = block;
        *length = size;
    }
    variant_cleanup(&value);
    return block != nullptr;
}

int argument_getList(argument_list_t *a, const char *name, uint32_t, variant_list_t **list) {
    variant_t value;
    if (list == nullptr)
        return 0;
    Presence presence = read_argument(a, name, is_list, &value);
    if (presence == Presence::missing)
        return 0;
    *list = presence == Presence::present ? inside(&value)->list : nullptr;
    return 1;
}

// SPDX-License-Identifier: MIT
// Calls that arrive: reading them, running their functions, answering (kex.h, "Calls that arrive").
#include "bus.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

using namespace sdbus;

namespace {

constexpr size_t kShortestArray = 1024;
constexpr size_t kShownName = 65;

int call_read(sd_bus_message *message, request_t &request, Parameters &values) {
    Reader reader{message};
    reader.bytes(request.path);
    reader.bytes(request.function);
    reader.number('u', &request.flags);
    reader.enter('a', "(ay(yv))");
    while (reader.more()) {
        if (values.size() >= kMaxArguments)
            return -E2BIG;
        auto &[name, value] = values.emplace_back();
        reader.enter('r', "ay(yv)");
        reader.bytes(name);
        reader.value(&value);
        reader.exit();
    }
    return reader.result;
}

void call_refuse(function_call_t &call, uint32_t code, const char *description, const std::string &name) {
    char shown[kShownName];
    reply_add(call.request.reply, code, description, bus::printable(shown, sizeof shown, name.data(), name.size()));
}

void call_tell_failed(kex_t *bus, const function_call_t &call) {
    const request_t &request = call.request;
    const kex_failed_call_t failed = {bus,
                                      call.connection->handle,
                                      call.connection->process_name.c_str(),
                                      call.connection->process,
                                      {request.path.data(), static_cast<uint32_t>(request.path.size())},
                                      {request.function.data(), static_cast<uint32_t>(request.function.size())}};
    if (bus->failed_handler != nullptr)
        bus->failed_handler(&failed, bus->failed_userdata);
}

void call_run_function(kex_t *bus, function_call_t &call, variant_t *value) {
    request_t &request = call.request;
    if (request.path == KEX_BUILTIN_PATH && request.function == KEX_BUILTIN_LIST)
        return listing_fill(bus, value);
    call.object = object_find(bus, request.path);
    if (call.object == nullptr || !object_is_callable(call.object))
        return call_refuse(call, KEX_ERROR_NO_OBJECT, "No such object", request.path);
    call.arguments->function = function_find(bus, call.object->class_name, request.function);
    if (call.arguments->function == nullptr)
        return call_refuse(call, KEX_ERROR_NO_FUNCTION, "No such function", request.function);
    bus->running = &call;
    request.reply.being_built = true;
    if (bus->call_handler != nullptr && bus->call_handler(bus, bus->call_userdata) == 0)
        call_refuse(call, KEX_ERROR_REFUSED, "Not allowed", request.function);
    else if (call.arguments->function->entry(&call, call.arguments, value) == KEX_FUNCTION_FAILED)
        call_tell_failed(bus, call);
    request.reply.being_built = false;
    bus->running = nullptr;
    objects_bury();
}

// Without a message: the reply is over the limits, or holds a descriptor that is none.
Outgoing reply_make(sd_bus_message *message, const reply_t &reply, const variant_t *value) {
    const Weight weight = reply_weigh(reply, value);
    sd_bus_message *made = nullptr;
    if (weight.bytes > kMaxQueuedBytes || weight.descriptors > kMaxDescriptors ||
        sd_bus_message_new_method_return(message, &made) < 0)
        return {};
    Outgoing outgoing{Message(made), 0, false, weight};
    return reply_write(made, reply, value) >= 0 ? std::move(outgoing) : Outgoing{};
}

// Behind whatever the function has sent.
void call_answer(function_call_t &call, sd_bus_message *message, const variant_t *value) {
    const Value nothing;
    Connection &connection = *call.connection;
    reply_t &reply = call.request.reply;
    if (connection.closed || sd_bus_message_get_expect_reply(message) <= 0)
        return;
    Outgoing outgoing = reply_make(message, reply, value);
    if (outgoing.message == nullptr) { // whoever called must not wait for ever, nor go
        reply.items.clear();
        reply_add(reply, KEX_ERROR_TOO_LARGE, "The reply cannot be sent", "it is over a limit, or no descriptor");
        outgoing = reply_make(message, reply, &nothing);
    }
    if (outgoing.message == nullptr)
        return connection_end(connection, "no reply can be made");
    connection_queue(connection, std::move(outgoing));
    if (connection.queued.bytes > kReplyAllowance * kMaxQueuedBytes ||
        connection.queued.descriptors > kReplyAllowance * kMaxDescriptors)
        connection_end(connection, "it does not read its replies");
}

// By its own name first, then by the other ones that its declaration gives it.
variant_t *argument_find(argument_list_t *a, const std::string &name) {
    for (auto &[known, value] : a->values) {
        if (known == name)
            return &value;
    }
    for (const std::string &names : a->function->arguments) {
        const std::string bounded = "|" + names + "|";
        if (bounded.find("|" + name + "|") == std::string::npos)
            continue;
        for (auto &[known, value] : a->values) {
            if (bounded.find("|" + known + "|") != std::string::npos)
                return &value;
        }
    }
    return nullptr;
}

// The argument when it is of this type or has no value.
variant_t *argument_look(argument_list_t *a, const char *name, uint32_t type) {
    variant_t *value = a != nullptr && name != nullptr ? argument_find(a, name) : nullptr;
    const bool fits = variant_type(value) == type || variant_type(value) == VARIANT_NONE;
    return value != nullptr && fits ? value : nullptr;
}

template <class Number>
int argument_get(argument_list_t *a, const char *name, Number *number, int (*convert)(const variant_t *, Number *)) {
    return a != nullptr && name != nullptr ? convert(argument_find(a, name), number) : 0;
}

kex_text_t text_of(const std::string &text) {
    return {text.data(), static_cast<uint32_t>(text.size())};
}

} // namespace

namespace sdbus {

void call_run(kex_t *bus, Event &event) {
    argument_list_t arguments;
    function_call_t call{{0, "", "", 0, {}}, nullptr, event.connection, &arguments};
    if (call_read(event.message.get(), call.request, arguments.values) < 0)
        return connection_end(*event.connection, "it sent a malformed call");
    Value value;
    call_run_function(bus, call, &value);
    call_answer(call, event.message.get(), &value);
}

} // namespace sdbus

request_t *fcall_request(function_call_t *call) {
    return call != nullptr ? &call->request : nullptr;
}
object_t *fcall_object(function_call_t *call) {
    return call != nullptr ? call->object : nullptr;
}
peer_t *fcall_peer(function_call_t *call) {
    return call != nullptr ? call->connection->handle : nullptr;
}
void fcall_destroy(function_call_t *) {} // it goes when its function has returned

int argument_getChar(argument_list_t *a, const char *name, uint32_t, char **text) {
    const variant_t *value = argument_look(a, name, VARIANT_TEXT);
    if (value == nullptr || text == nullptr)
        return 0;
    const char *found = nullptr;
    *text = variant_toChar(value, &found) != 0 ? strdup(found) : nullptr;
    return 1;
}

int argument_getUInt16(argument_list_t *a, const char *name, uint32_t, uint16_t *value) {
    return argument_get(a, name, value, variant_toUInt16);
}
int argument_getUInt32(argument_list_t *a, const char *name, uint32_t, uint32_t *value) {
    return argument_get(a, name, value, variant_toUInt32);
}
int argument_getInt32(argument_list_t *a, const char *name, uint32_t, int32_t *value) {
    return argument_get(a, name, value, variant_toInt32);
}

int argument_getByteArray(argument_list_t *a, const char *name, uint32_t, void **data, uint32_t *length) {
    const variant_t *value = argument_look(a, name, VARIANT_BYTES);
    const void *bytes = nullptr;
    if (value == nullptr || data == nullptr || length == nullptr)
        return 0;
    *data = nullptr;
    *length = 0;
    if (variant_toByteArray(value, &bytes, length) == 0)
        return 1;
    *data = calloc(1, std::max<size_t>(*length, kShortestArray)); // fixed records are read from shorter ones
    memcpy(*data, bytes, *length);
    return 1;
}

int argument_getList(argument_list_t *a, const char *name, uint32_t, variant_list_t **list) {
    variant_t *value = argument_look(a, name, VARIANT_LIST);
    if (value == nullptr || list == nullptr)
        return 0;
    *list = variant_type(value) == VARIANT_LIST ? list_take(variant_da_list(value)) : nullptr;
    return 1;
}

int kex_currentCall(kex_t *bus, kex_call_t *call) {
    if (bus == nullptr || call == nullptr || bus->running == nullptr)
        return 0;
    const request_t &request = bus->running->request;
    *call = {bus->running->connection->handle, text_of(request.path), text_of(request.function)};
    return 1;
}

int kex_currentText(kex_t *bus, const char *argument, kex_text_t *text) {
    if (bus == nullptr || bus->running == nullptr || argument == nullptr || text == nullptr)
        return 0;
    const variant_t *value = argument_find(bus->running->arguments, argument);
    const char *found;
    if (variant_toChar(value, &found) == 0)
        return 0;
    *text = {found, static_cast<uint32_t>(strlen(found))};
    return 1;
}

int kex_currentUInt32(kex_t *bus, const char *argument, uint32_t *number) {
    return bus != nullptr && bus->running != nullptr
               ? argument_get(bus->running->arguments, argument, number, variant_toUInt32)
               : 0;
}

void kex_onCall(kex_t *bus, int (*handler)(kex_t *, void *), void *userdata) {
    if (bus == nullptr)
        return;
    bus->call_handler = handler;
    bus->call_userdata = userdata;
}

void kex_onFailed(kex_t *bus, void (*handler)(const kex_failed_call_t *, void *), void *userdata) {
    if (bus == nullptr)
        return;
    bus->failed_handler = handler;
    bus->failed_userdata = userdata;
}

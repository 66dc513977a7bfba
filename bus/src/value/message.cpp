// SPDX-License-Identifier: MIT
// Implements message.h: the head and every body, each written and read side by side.
#include "value/message.h"
#include "base/closer.h"

namespace bus::wire {

namespace {

bool get_end(Reader &reader) {
    if (reader.why == nullptr && reader.at != reader.size)
        fail(reader.why, "the packet has trailing bytes");
    return reader.why == nullptr;
}

bool get_call(Reader &reader, Call &call) {
    call.path = get_text(reader);
    call.function = get_text(reader);
    call.count = get_byte(reader);
    if (call.count > kMaxArguments)
        return fail(reader.why, "too many arguments");
    for (uint32_t i = 0; i < call.count && reader.why == nullptr; i++) {
        call.arguments[i].name = get_text(reader);
        call.arguments[i].at = reader.at;
        get_value(reader, nullptr);
    }
    return get_end(reader);
}

bool get_errors(Reader &reader, reply_t *reply) {
    uint32_t errors = get_byte(reader);
    reader.errors += errors;
    if (reader.errors > kMaxErrors)
        return fail(reader.why, "too many error items");
    for (uint32_t i = 0; i < errors && reader.why == nullptr; i++) {
        uint32_t code = get_word(reader);
        Text description = get_text(reader);
        Text info = get_text(reader);
        if (reader.why == nullptr && reply != nullptr && !reply_append_error(reply, code, description, info))
            return fail(reader.why, "out of memory");
    }
    return reader.why == nullptr;
}

// Reads a reply into *reply, or only checks it when that is null.
bool get_reply(Reader &reader, reply_t *reply) {
    if (!get_errors(reader, reply))
        return false;
    uint8_t has_value = get_byte(reader);
    if (has_value > 1)
        return fail(reader.why, "a reply has more than one value");
    if (has_value == 1) {
        variant_t *value = reply != nullptr ? reply_append_value(reply) : nullptr;
        if (reply != nullptr && value == nullptr)
            return fail(reader.why, "out of memory");
        get_value(reader, value);
    }
    return get_end(reader);
}

void get_body(Reader &reader, uint8_t kind) {
    Call call;
    switch (kind) {
    case kHello:
    case kTapHello:
    case kRefused:
        get_text(reader);
        get_end(reader);
        break;
    case kCall:
    case kOneWayCall:
        get_call(reader, call);
        break;
    case kReply:
    case kMissed:
        get_reply(reader, nullptr);
        break;
    case kWaiting:
        get_end(reader);
        break;
    default:
        fail(reader.why, "the kind of the packet is unknown");
    }
}

} // namespace

Writer message_begin(uint8_t *memory, uint32_t limit) {
    Writer writer;
    writer.data = memory;
    writer.limit = limit;
    writer.size = 0;
    writer.why = nullptr;
    writer.values = 0;
    writer.errors = 0;
    writer.fd_count = 0;
    return writer;
}

void message_discard(Writer &writer) {
    foreign_descriptors_close(writer.fds, writer.fd_count);
    writer.fd_count = 0;
}

void descriptors_close(Descriptors &descriptors) {
    foreign_descriptors_close(descriptors.fds, descriptors.count);
    for (uint32_t i = 0; i < descriptors.count; i++)
        descriptors.fds[i] = -1;
}

// ----------------------------------------------------------------------------------------------------- Heads

const char *message_open(const void *bytes, uint32_t size, Message &message) {
    const uint8_t *head = static_cast<const uint8_t *>(bytes);
    if (size < kKindAt + 1)
        return "the packet is cut off";
    if (head[0] != kMagic)
        return "this is no packet of the bus";
    if (head[1] != kVersion)
        return "the protocol version differs";
    if (head[2] != kOrder)
        return "the byte order differs";
    if (size < kHeadSize)
        return "the packet is cut off";
    message.kind = head[kKindAt];
    memcpy(&message.serial, head + kSerialAt, sizeof message.serial);
    memcpy(&message.flags, head + kFlagsAt, sizeof message.flags);
    memcpy(&message.size, head + kSizeAt, sizeof message.size);
    memcpy(&message.descriptors, head + kDescriptorsAt, sizeof message.descriptors);
    message.data = head;
    if (message.size < kHeadSize)
        return "a message is shorter than its head";
    return message.size <= size ? nullptr : "the packet is cut off";
}

const char *message_validate(const Message &message, Totals &totals) {
    Reader reader = reader_at(message.data, message.size, kHeadSize, nullptr);
    reader.announced = message.descriptors;
    reader.values = totals.values;
    reader.errors = totals.errors;
    get_body(reader, message.kind);
    totals = {reader.values, reader.errors};
    const uint64_t all = message.descriptors < 64 ? (uint64_t{1} << message.descriptors) - 1 : UINT64_MAX;
    if (reader.why == nullptr && reader.used != all)
        fail(reader.why, "a descriptor came that no value names");
    return reader.why;
}

// ----------------------------------------------------------------------------------------------------- Bodies

void hello_write(Writer &writer, const char *name) {
    put_head(writer, kHello, 0, 0);
    put_text(writer, name);
    head_complete(writer);
}

void tap_hello_write(Writer &writer, const char *name) {
    put_head(writer, kTapHello, 0, 0);
    put_text(writer, name);
    head_complete(writer);
}

Text hello_name(const Message &message) {
    Reader reader = reader_at(message.data, message.size, kHeadSize, nullptr);
    return get_text(reader);
}

void call_write(Writer &writer, uint32_t serial, uint32_t flags, Text path, Text function,
                const Parameters &parameters) {
    put_head(writer, kCall, serial, flags);
    put_text(writer, path);
    put_text(writer, function);
    put_byte(writer, static_cast<uint8_t>(parameters.count));
    for (const Parameter *parameter = parameters.first; parameter != nullptr; parameter = parameter->next) {
        put_text(writer, parameter->name);
        put_value(writer, &parameter->value);
    }
    head_complete(writer);
}

void call_make_one_way(uint8_t *message) {
    message[kKindAt] = kOneWayCall;
}

bool call_read(const Message &message, Call &call) {
    Reader reader = reader_at(message.data, message.size, kHeadSize, nullptr);
    return get_call(reader, call);
}

uint32_t argument_type(const Message &message, const Argument &argument) {
    return message.data[argument.at];
}

bool argument_read(const Message &message, const Argument &argument, Descriptors *descriptors, variant_t *value) {
    Reader reader = reader_at(message.data, message.size, argument.at, descriptors);
    return get_value(reader, value);
}

bool argument_text(const Message &message, const Argument &argument, Text &text) {
    if (argument_type(message, argument) != VARIANT_TEXT)
        return false;
    Reader reader = reader_at(message.data, message.size, argument.at + 1, nullptr); // behind the type code
    text = get_text(reader);
    return reader.why == nullptr;
}

bool argument_bytes(const Message &message, const Argument &argument, Text &bytes) {
    if (argument_type(message, argument) != VARIANT_BYTES)
        return false;
    Reader reader = reader_at(message.data, message.size, argument.at + 1, nullptr);
    bytes = get_text(reader); // a length and so many bytes, too
    return reader.why == nullptr;
}

void reply_write(Writer &writer, Kind kind, uint32_t serial, const reply_t *reply, const variant_t *value) {
    put_head(writer, kind, serial, 0);
    put_byte(writer, static_cast<uint8_t>(reply->errors));
    writer.errors = reply->errors;
    for (const reply_item_t *item = reply->first; item != nullptr; item = item->next) {
        put_word(writer, item->code);
        put_text(writer, item->description);
        put_text(writer, item->info);
    }
    bool has_value = value != nullptr && variant_type(value) != VARIANT_NONE;
    put_byte(writer, has_value);
    if (has_value)
        put_value(writer, value);
    head_complete(writer);
}

bool reply_read(const Message &message, Descriptors *descriptors, reply_t *reply) {
    Reader reader = reader_at(message.data, message.size, kHeadSize, descriptors);
    return get_reply(reader, reply);
}

void refusal_write(Writer &writer, const char *why) {
    put_head(writer, kRefused, 0, 0);
    put_text(writer, why);
    head_complete(writer);
}

Text refusal_reason(const Message &message) {
    Reader reader = reader_at(message.data, message.size, kHeadSize, nullptr);
    return get_text(reader);
}

void waiting_write(Writer &writer, uint32_t serial) {
    put_head(writer, kWaiting, serial, 0);
    head_complete(writer);
}

} // namespace bus::wire

// SPDX-License-Identifier: MIT
// The bytes of a packet; no other file knows them.
//
//  Every packet begins with
//
//   0        1        2        3        4                 8                12
//  +--------+--------+--------+--------+-----------------+-----------------+--------------
//  |  'k'   |version | order  |  kind  |     serial      |      flags      | body ...
//  +--------+--------+--------+--------+-----------------+-----------------+--------------
//
//  The first four are single bytes, so that two sides of different version or byte order can still read and refuse each
//  other. `order` is 'l' or 'B' (little, big): all numbers after it are in the sender's order, without padding. A text
//  is its length (4) and its bytes. `serial` counts the calls of a connection's side; a reply, a notice of waiting and
//  only they carry the serial of the call they are about. `flags` are the request's.
//
//   kind          body
//   1 hello       text: name of the process
//   2 call        text: path, text: function, count (1), then per argument text: name, value
//   3 one-way     as a call; no reply is sent
//   4 reply       count (1), then per error item code (4), text: description, text: info; then 0 (1), or 1 (1) and a
//   value 5 refused     text: why; the connection closes after it 6 waiting     nothing 7 tap hello   text: name of the
//   process 8 tap record  see tap.cpp
//
//  A value is its type code (1) and
//
//     0 text             text
//     3, 7 16-bit        number (2)
//     4, 8 32-bit        number (4)
//    10 boolean          0 or 1 (1)
//    13 list             count (4), then that many values
//    18 descriptor       index (4) among the descriptors that travel with the packet, number (4) at the sender;
//                        both are -1 for a descriptor that is none
//    19 byte array       length (4), then its bytes
//   255 no value         nothing
//
//  Each descriptor that travels with a packet is named by exactly one index.
#include "value/wire.h"
#include "value/reply.h"
#include "value/variant.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

namespace bus::wire {

namespace {

constexpr uint8_t kMagic = 'k';
constexpr uint8_t kVersion = 1;
constexpr uint8_t kOrder = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? 'l' : 'B';
constexpr uint32_t kKindAt = 3;
constexpr uint32_t kHeadSize = 12;
constexpr uint32_t kNoIndex = UINT32_MAX;
static_assert(kMaxDescriptors <= 64, "an index is a bit of Reader::used");

bool fail(const char *&why, const char *sentence) {
    if (why == nullptr)
        why = sentence;
    return false;
}

bool has_room(Writer &writer, uint32_t length) {
    if (writer.why != nullptr)
        return false;
    if (length > writer.limit - writer.size)
        return fail(writer.why, "the packet would be too large");
    return true;
}

const uint8_t *take(Reader &reader, uint32_t length) {
    if (reader.why == nullptr && length > reader.size - reader.at)
        fail(reader.why, "the packet is cut off");
    if (reader.why != nullptr)
        return nullptr;
    const uint8_t *bytes = reader.data + reader.at;
    reader.at += length;
    return bytes;
}

template <class Number>
void put_number(Writer &writer, Number number) {
    put_bytes(writer, &number, sizeof number);
}

template <class Number>
Number get_number(Reader &reader) {
    Number number = 0;
    const uint8_t *bytes = take(reader, sizeof number);
    if (bytes != nullptr)
        memcpy(&number, bytes, sizeof number);
    return number;
}

void put_descriptor(Writer &writer, int fd) {
    uint32_t index = kNoIndex;
    if (fd >= 0) {
        if (writer.fd_count == kMaxDescriptors) {
            fail(writer.why, "too many descriptors");
            return;
        }
        int duplicate = writer.why == nullptr ? fcntl(fd, F_DUPFD_CLOEXEC, 0) : -1;
        if (duplicate < 0) {
            fail(writer.why, "a descriptor cannot be duplicated");
            return;
        }
        index = writer.fd_count++;
        writer.fds[index] = duplicate;
    }
    put_word(writer, index);
    put_word(writer, fd >= 0 ? static_cast<uint32_t>(fd) : kNoIndex);
}

bool get_descriptor(Reader &reader, variant_t *value) {
    uint32_t index = get_word(reader);
    int number = static_cast<int>(get_word(reader));
    if (reader.why != nullptr)
        return false;
    if (index != kNoIndex) {
        if (index >= reader.announced)
            return fail(reader.why, "a descriptor did not come");
        if ((reader.used >> index & 1) != 0)
            return fail(reader.why, "a descriptor is used twice");
        reader.used |= uint64_t{1} << index;
    }
    if (value == nullptr)
        return true;
    if (reader.descriptors == nullptr) {
        variant_setFd(value, index != kNoIndex ? number : -1);
    } else if (index < reader.descriptors->count) {
        value_own_fd(value, reader.descriptors->fds[index]);
        reader.descriptors->fds[index] = -1;
    } else {
        variant_setFd(value, -1);
    }
    return true;
}

void put_list(Writer &writer, const variant_list_t *list) {
    uint32_t count = variant_list_size(list);
    put_word(writer, count);
    for (uint32_t i = 0; i < count && writer.why == nullptr; i++)
        put_value(writer, variant_list_at(list, i));
}

bool get_nested(Reader &reader, variant_t *value, uint32_t nesting);

bool get_list(Reader &reader, variant_t *value, uint32_t nesting) {
    if (nesting > kMaxNesting)
        return fail(reader.why, "lists are nested too deep");
    uint32_t count = get_word(reader);
    variant_list_t *list = nullptr;
    if (value != nullptr) {
        variant_initialize(value, VARIANT_LIST);
        list = variant_da_list(value);
        if (list == nullptr)
            return fail(reader.why, "out of memory");
    }
    for (uint32_t i = 0; i < count && reader.why == nullptr; i++) {
        variant_t *item = list != nullptr ? list_append(list) : nullptr;
        if (list != nullptr && item == nullptr)
            return fail(reader.why, "out of memory");
        get_nested(reader, item, nesting + 1);
    }
    return reader.why == nullptr;
}

bool get_array(Reader &reader, variant_t *value) {
    uint32_t length = get_word(reader);
    if (length > kMaxByteArray)
        return fail(reader.why, "a byte array is too long");
    const uint8_t *bytes = take(reader, length);
    if (bytes == nullptr)
        return false;
    return value == nullptr || variant_setByteArray(value, bytes, length) || fail(reader.why, "out of memory");
}

bool get_text_value(Reader &reader, variant_t *value) {
    Text text = get_text(reader);
    if (reader.why != nullptr)
        return false;
    return value == nullptr || value_set_text(value, text.bytes, text.length) || fail(reader.why, "out of memory");
}

// Integers of one width; `value` may be null.
template <class Wire>
void get_integer(Reader &reader, variant_t *value, int (*set)(variant_t *, Wire)) {
    Wire number = get_number<Wire>(reader);
    if (value != nullptr)
        set(value, number);
}

// One table of types for both directions would need an indirection per value; put_value() and this stand side by side.
bool get_nested(Reader &reader, variant_t *value, uint32_t nesting) {
    uint8_t type = get_byte(reader);
    if (value != nullptr)
        variant_initialize(value, VARIANT_NONE);
    if (reader.why == nullptr && ++reader.values > kMaxValues)
        fail(reader.why, "too many values");
    if (reader.why != nullptr)
        return false;
    switch (type) {
    case VARIANT_TEXT:
        return get_text_value(reader, value);
    case VARIANT_INT16:
        get_integer<int16_t>(reader, value, variant_setInt16);
        break;
    case VARIANT_UINT16:
        get_integer<uint16_t>(reader, value, variant_setUInt16);
        break;
    case VARIANT_INT32:
        get_integer<int32_t>(reader, value, variant_setInt32);
        break;
    case VARIANT_UINT32:
        get_integer<uint32_t>(reader, value, variant_setUInt32);
        break;
    case VARIANT_BOOL: {
        uint8_t truth = get_byte(reader);
        if (truth > 1)
            return fail(reader.why, "a boolean is neither 0 nor 1");
        if (value != nullptr)
            variant_setBool(value, truth);
        break;
    }
    case VARIANT_LIST:
        return get_list(reader, value, nesting);
    case VARIANT_FD:
        return get_descriptor(reader, value);
    case VARIANT_BYTES:
        return get_array(reader, value);
    case VARIANT_NONE:
        break;
    default:
        return fail(reader.why, "a value has an unknown type");
    }
    return reader.why == nullptr;
}

bool at_end(Reader &reader) {
    if (reader.why == nullptr && reader.at != reader.size)
        fail(reader.why, "the packet goes on after its end");
    return reader.why == nullptr;
}

} // namespace

// ----------------------------------------------------------------------------------------------------- Writing

Writer start(uint8_t *memory, uint32_t limit, Kind kind, uint32_t serial, uint32_t flags) {
    Writer writer = {};
    writer.data = memory;
    writer.limit = limit;
    put_byte(writer, kMagic);
    put_byte(writer, kVersion);
    put_byte(writer, kOrder);
    put_byte(writer, kind);
    put_word(writer, serial);
    put_word(writer, flags);
    return writer;
}

void put_byte(Writer &writer, uint8_t byte) {
    put_number(writer, byte);
}
void put_word(Writer &writer, uint32_t word) {
    put_number(writer, word);
}
void put_long(Writer &writer, uint64_t number) {
    put_number(writer, number);
}

void put_bytes(Writer &writer, const void *bytes, uint32_t length) {
    if (!has_room(writer, length))
        return;
    if (length > 0)
        memcpy(writer.data + writer.size, bytes, length);
    writer.size += length;
}

void put_text(Writer &writer, const char *text) {
    size_t length = strlen(text);
    if (length > writer.limit) {
        fail(writer.why, "a text is too long");
        return;
    }
    put_word(writer, static_cast<uint32_t>(length));
    put_bytes(writer, text, static_cast<uint32_t>(length));
}

void put_value(Writer &writer, const variant_t *v) {
    const Value *value = inside(v);
    if (++writer.values > kMaxValues)
        fail(writer.why, "too many values");
    put_byte(writer, static_cast<uint8_t>(value->type));
    switch (value->type) {
    case VARIANT_TEXT:
        put_text(writer, value->text != nullptr ? value->text : "");
        break;
    case VARIANT_INT16:
    case VARIANT_UINT16:
        put_number(writer, static_cast<uint16_t>(value->integer));
        break;
    case VARIANT_INT32:
    case VARIANT_UINT32:
        put_word(writer, static_cast<uint32_t>(value->integer));
        break;
    case VARIANT_BOOL:
        put_byte(writer, value->integer != 0);
        break;
    case VARIANT_LIST:
        put_list(writer, value->list);
        break;
    case VARIANT_FD:
        put_descriptor(writer, static_cast<int>(value->integer));
        break;
    case VARIANT_BYTES:
        if (value->length > kMaxByteArray)
            fail(writer.why, "a byte array is too long");
        put_word(writer, value->length);
        put_bytes(writer, value->bytes, value->length);
        break;
    default:
        break;
    }
}

void discard(Writer &writer) {
    for (uint32_t i = 0; i < writer.fd_count; i++)
        close(writer.fds[i]);
    writer.fd_count = 0;
}

void make_one_way(uint8_t *packet) {
    packet[kKindAt] = kOneWayCall;
}

// ----------------------------------------------------------------------------------------------------- Reading

void close_all(Descriptors &descriptors) {
    for (uint32_t i = 0; i < descriptors.count; i++) {
        if (descriptors.fds[i] >= 0)
            close(descriptors.fds[i]);
        descriptors.fds[i] = -1;
    }
}

const char *read_head(const void *packet, uint32_t size, Head &head) {
    const uint8_t *bytes = static_cast<const uint8_t *>(packet);
    if (size < kKindAt + 1)
        return "the packet is cut off";
    if (bytes[0] != kMagic)
        return "this is no packet of the bus";
    if (bytes[1] != kVersion)
        return "the protocol version differs";
    if (bytes[2] != kOrder)
        return "the byte order differs";
    if (size < kHeadSize)
        return "the packet is cut off";
    head.kind = bytes[kKindAt];
    memcpy(&head.serial, bytes + kKindAt + 1, sizeof head.serial);
    memcpy(&head.flags, bytes + kKindAt + 1 + sizeof head.serial, sizeof head.flags);
    return nullptr;
}

Reader open(const void *packet, uint32_t size) {
    return open_at(packet, size, kHeadSize, nullptr);
}

Reader open_at(const void *packet, uint32_t size, uint32_t at, Descriptors *descriptors) {
    Reader reader = {};
    reader.data = static_cast<const uint8_t *>(packet);
    reader.size = size;
    reader.at = at;
    reader.announced = descriptors != nullptr ? descriptors->count : kMaxDescriptors;
    reader.descriptors = descriptors;
    return reader;
}

uint8_t get_byte(Reader &reader) {
    return get_number<uint8_t>(reader);
}
uint32_t get_word(Reader &reader) {
    return get_number<uint32_t>(reader);
}
uint64_t get_long(Reader &reader) {
    return get_number<uint64_t>(reader);
}

Text get_text(Reader &reader) {
    uint32_t length = get_word(reader);
    const uint8_t *bytes = take(reader, length);
    if (bytes == nullptr)
        return {"", 0};
    return {reinterpret_cast<const char *>(bytes), length};
}

uint32_t next_type(const Reader &reader) {
    return reader.at < reader.size ? reader.data[reader.at] : uint32_t{VARIANT_NONE};
}

bool get_value(Reader &reader, variant_t *value) {
    bool good = get_nested(reader, value, 1);
    if (!good && value != nullptr)
        variant_cleanup(value);
    return good;
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
    return at_end(reader);
}

bool get_reply(Reader &reader, reply_t *reply) {
    uint32_t errors = get_byte(reader);
    if (errors > kMaxErrors)
        return fail(reader.why, "too many error items");
    for (uint32_t i = 0; i < errors && reader.why == nullptr; i++) {
        uint32_t code = get_word(reader);
        Text description = get_text(reader);
        Text info = get_text(reader);
        if (reader.why == nullptr && reply != nullptr && !reply_append_error(reply, code, description, info))
            return fail(reader.why, "out of memory");
    }
    uint8_t has_value = get_byte(reader);
    if (has_value > 1)
        return fail(reader.why, "a reply has more than one value");
    if (has_value == 1 && reader.why == nullptr) {
        variant_t *value = reply != nullptr ? reply_append_value(reply) : nullptr;
        if (reply != nullptr && value == nullptr)
            return fail(reader.why, "out of memory");
        get_value(reader, value);
    }
    return at_end(reader);
}

const char *check(const void *packet, uint32_t size, uint32_t descriptors, Head &head) {
    const char *why = read_head(packet, size, head);
    if (why != nullptr)
        return why;
    Reader reader = open(packet, size);
    reader.announced = descriptors;
    Call call;
    switch (head.kind) {
    case kHello:
    case kTapHello:
    case kRefused:
        get_text(reader);
        at_end(reader);
        break;
    case kCall:
    case kOneWayCall:
        get_call(reader, call);
        break;
    case kReply:
        get_reply(reader, nullptr);
        break;
    case kWaiting:
        at_end(reader);
        break;
    default:
        fail(reader.why, "the kind of the packet is unknown");
    }
    uint64_t all = descriptors < 64 ? (uint64_t{1} << descriptors) - 1 : UINT64_MAX;
    if (reader.why == nullptr && reader.used != all)
        fail(reader.why, "a descriptor came that no value names");
    return reader.why;
}

} // namespace bus::wire

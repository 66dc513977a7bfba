// SPDX-License-Identifier: MIT
// Writing and reading the parts of a message: numbers, texts and values. For the files of this folder; others write and
// read whole messages (message.h, tap_record.h).
#ifndef KEX_WIRE_H
#define KEX_WIRE_H

#include "base/contract.h"
#include "base/limits.h"
#include "value/layout.h"
#include "value/text.h"

#include <string.h>

namespace bus::wire {

// The first problem wins. Always false.
inline bool fail(const char *&why, const char *sentence) {
    if (why == nullptr)
        why = sentence;
    return false;
}

// ----------------------------------------------------------------------------------------------------- Writing

// A message under construction. The first problem stays in `why`; everything after it does nothing.
struct Writer {
    uint8_t *data;
    uint32_t limit;
    uint32_t size;
    const char *why;
    uint32_t values;
    uint32_t errors; // error items of a reply
    uint32_t fd_count;
    int fds[kMaxDescriptors]; // duplicates, the writer's until they are taken
};

// Without their length.
inline void put_bytes(Writer &writer, const void *bytes, uint32_t length) {
    if (writer.why != nullptr)
        return;
    if (length > writer.limit - writer.size) {
        writer.why = "the packet would be too large";
        return;
    }
    if (length > 0)
        memcpy(writer.data + writer.size, bytes, length);
    writer.size += length;
}

template <class Number>
void put_number(Writer &writer, Number number) {
    put_bytes(writer, &number, sizeof number);
}

inline void put_byte(Writer &writer, uint8_t byte) {
    put_number(writer, byte);
}
inline void put_word(Writer &writer, uint32_t word) {
    put_number(writer, word);
}
inline void put_long(Writer &writer, uint64_t number) {
    put_number(writer, number);
}

inline void put_text(Writer &writer, Text text) {
    put_word(writer, text.length);
    put_bytes(writer, text.bytes, text.length);
}

inline void put_text(Writer &writer, const char *text) {
    size_t length = strlen(text);
    if (length > writer.limit)
        fail(writer.why, "a text is too long");
    else
        put_text(writer, Text{text, static_cast<uint32_t>(length)});
}

inline void put_head(Writer &writer, Kind kind, uint32_t serial, uint32_t flags) {
    uint8_t head[kHeadSize] = {kMagic, kVersion, kOrder, kind};
    memcpy(head + kSerialAt, &serial, sizeof serial);
    memcpy(head + kFlagsAt, &flags, sizeof flags);
    put_bytes(writer, head, sizeof head);
}

// Behind the body: the head says how long the message has become, and how many descriptors it has.
inline void head_complete(Writer &writer) {
    if (writer.why != nullptr)
        return;
    memcpy(writer.data + kSizeAt, &writer.size, sizeof writer.size);
    memcpy(writer.data + kDescriptorsAt, &writer.fd_count, sizeof writer.fd_count);
}

// Duplicates descriptors.
void put_value(Writer &writer, const variant_t *value);

// ----------------------------------------------------------------------------------------------------- Reading

// Descriptors that came with a message, or with a packet. One that has been handed out is -1.
struct Descriptors {
    int *fds;
    uint32_t count;
};

// A message being read. The first problem stays in `why`; everything after it reads as nothing.
struct Reader {
    const uint8_t *data;
    uint32_t size;
    uint32_t at;
    const char *why;
    uint32_t values;
    uint32_t errors;          // error items
    uint32_t announced;       // descriptors that came; indices must stay below
    uint64_t used;            // one bit per index
    Descriptors *descriptors; // where values take theirs from; null: their numbers are shown, as to a tap
};
static_assert(kMaxDescriptors <= 64, "an index is a bit of Reader::used");

inline Reader reader_at(const uint8_t *data, uint32_t size, uint32_t at, Descriptors *descriptors) {
    Reader reader = {};
    reader.data = data;
    reader.size = size;
    reader.at = at;
    reader.announced = descriptors != nullptr ? descriptors->count : kMaxDescriptors;
    reader.descriptors = descriptors;
    return reader;
}

inline const uint8_t *get_bytes(Reader &reader, uint32_t length) {
    if (reader.why == nullptr && length > reader.size - reader.at)
        reader.why = "the packet is cut off";
    if (reader.why != nullptr)
        return nullptr;
    const uint8_t *bytes = reader.data + reader.at;
    reader.at += length;
    return bytes;
}

template <class Number>
Number get_number(Reader &reader) {
    Number number = 0;
    const uint8_t *bytes = get_bytes(reader, sizeof number);
    if (bytes != nullptr)
        memcpy(&number, bytes, sizeof number);
    return number;
}

inline uint8_t get_byte(Reader &reader) {
    return get_number<uint8_t>(reader);
}
inline uint32_t get_word(Reader &reader) {
    return get_number<uint32_t>(reader);
}
inline uint64_t get_long(Reader &reader) {
    return get_number<uint64_t>(reader);
}

inline Text get_text(Reader &reader) {
    uint32_t length = get_word(reader);
    const uint8_t *bytes = get_bytes(reader, length);
    if (bytes == nullptr)
        return {"", 0};
    return {reinterpret_cast<const char *>(bytes), length};
}

// Reads one value. With a null `value` it is only checked. False: broken or no memory; *value is valid and empty.
bool get_value(Reader &reader, variant_t *value);

} // namespace bus::wire

#endif

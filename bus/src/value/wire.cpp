// SPDX-License-Identifier: MIT
// Values in a packet.
#include "value/wire.h"
#include "base/faults.h"
#include "value/layout.h"
#include "value/variant.h"

#include <fcntl.h>

namespace bus::wire {

namespace {

void put_descriptor(Writer &writer, int fd) {
    uint32_t index = kNoIndex;
    if (fd >= 0) {
        if (writer.fd_count == kMaxDescriptors) {
            fail(writer.why, "too many descriptors");
            return;
        }
        int duplicate = writer.why == nullptr && !fault_is_due(Fault::dup) ? fcntl(fd, F_DUPFD_CLOEXEC, 0) : -1;
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

// Memory for as many values as are announced, so that a list of few takes little; what is announced and cannot come
// takes none. Null: there is no memory.
variant_list_t *list_begin(const Reader &reader, variant_t *value, uint32_t count) {
    const uint32_t left = kMaxValues - reader.values;
    variant_initialize(value, VARIANT_LIST);
    variant_list_t *list = variant_da_list(value);
    return list != nullptr && list_reserve(list, count < left ? count : left) ? list : nullptr;
}

bool get_list(Reader &reader, variant_t *value, uint32_t nesting) {
    if (nesting > kMaxNesting)
        return fail(reader.why, "lists are nested too deep");
    uint32_t count = get_word(reader);
    variant_list_t *list = nullptr;
    if (value != nullptr && reader.why == nullptr) {
        list = list_begin(reader, value, count);
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
    const uint8_t *bytes = get_bytes(reader, length);
    if (bytes == nullptr)
        return false;
    if (value != nullptr && !variant_setByteArray(value, bytes, length))
        return fail(reader.why, "out of memory");
    return true;
}

bool get_text_value(Reader &reader, variant_t *value) {
    const Text text = get_text(reader);
    if (reader.why != nullptr || value == nullptr)
        return reader.why == nullptr;
    const Text kept = text_as_read(text); // what is kept is counted by that (value_footprint())
    if (!value_set_text(value, kept.bytes, kept.length))
        return fail(reader.why, "out of memory");
    return true;
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

} // namespace

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

bool get_value(Reader &reader, variant_t *value) {
    bool good = get_nested(reader, value, 1);
    if (!good && value != nullptr)
        variant_cleanup(value);
    return good;
}

} // namespace bus::wire

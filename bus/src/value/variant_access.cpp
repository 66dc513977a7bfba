// SPDX-License-Identifier: MIT
// Setting and reading values (kex.h, "Variants").
#include "value/variant.h"

#include <string.h>

using namespace bus;

namespace {

// Each integer type's range, so that a conversion is one comparison.
bool integer_read(const variant_t *v, int64_t lowest, int64_t highest, int64_t *integer) {
    if (v == nullptr || !value_is_integer(inside(v)->type))
        return false;
    *integer = inside(v)->integer;
    return *integer >= lowest && *integer <= highest;
}

int integer_set(variant_t *v, uint32_t type, int64_t integer) {
    if (v == nullptr)
        return 0;
    value_set_integer(v, type, integer);
    return 1;
}

} // namespace

int variant_setChar(variant_t *v, const char *text) {
    if (v == nullptr || text == nullptr)
        return 0;
    size_t length = strlen(text);
    return length < UINT32_MAX && value_set_text(v, text, static_cast<uint32_t>(length));
}

int variant_setBool(variant_t *v, int value) {
    return integer_set(v, VARIANT_BOOL, value != 0);
}

int variant_setInt16(variant_t *v, int16_t value) {
    return integer_set(v, VARIANT_INT16, value);
}

int variant_setInt32(variant_t *v, int32_t value) {
    return integer_set(v, VARIANT_INT32, value);
}

int variant_setUInt16(variant_t *v, uint16_t value) {
    return integer_set(v, VARIANT_UINT16, value);
}

int variant_setUInt32(variant_t *v, uint32_t value) {
    return integer_set(v, VARIANT_UINT32, value);
}

int variant_setByteArray(variant_t *v, const void *data, uint32_t length) {
    if (v == nullptr || (data == nullptr && length > 0) || length == UINT32_MAX)
        return 0;
    return value_set_bytes(v, data, length);
}

int variant_setFd(variant_t *v, int fd) {
    return integer_set(v, VARIANT_FD, fd);
}

int variant_toBool(const variant_t *v, int *value) {
    if (v == nullptr || value == nullptr || (inside(v)->type != VARIANT_BOOL && !value_is_integer(inside(v)->type)))
        return 0;
    *value = inside(v)->integer != 0;
    return 1;
}

int variant_toInt16(const variant_t *v, int16_t *value) {
    int64_t integer;
    if (value == nullptr || !integer_read(v, INT16_MIN, INT16_MAX, &integer))
        return 0;
    *value = static_cast<int16_t>(integer);
    return 1;
}

int variant_fd(const variant_t *v) {
    if (v == nullptr || inside(v)->type != VARIANT_FD)
        return -1;
    // Reading moves the descriptor to the reader; the value itself, and what later reads see, stays the same.
    Value *value = inside(const_cast<variant_t *>(v));
    if (value->ownership == Ownership::ours)
        value->ownership = Ownership::taken;
    return static_cast<int>(value->integer);
}

int variant_toChar(const variant_t *v, const char **text) {
    if (v == nullptr || text == nullptr || inside(v)->type != VARIANT_TEXT)
        return 0;
    *text = inside(v)->text != nullptr ? inside(v)->text : "";
    return 1;
}

int variant_toUInt16(const variant_t *v, uint16_t *value) {
    int64_t integer;
    if (value == nullptr || !integer_read(v, 0, UINT16_MAX, &integer))
        return 0;
    *value = static_cast<uint16_t>(integer);
    return 1;
}

int variant_toInt32(const variant_t *v, int32_t *value) {
    int64_t integer;
    if (value == nullptr || !integer_read(v, INT32_MIN, INT32_MAX, &integer))
        return 0;
    *value = static_cast<int32_t>(integer);
    return 1;
}

int variant_toUInt32(const variant_t *v, uint32_t *value) {
    int64_t integer;
    if (value == nullptr || !integer_read(v, 0, UINT32_MAX, &integer))
        return 0;
    *value = static_cast<uint32_t>(integer);
    return 1;
}

int variant_toByteArray(const variant_t *v, const void **data, uint32_t *length) {
    if (v == nullptr || data == nullptr || length == nullptr || inside(v)->type != VARIANT_BYTES)
        return 0;
    static const uint8_t none = 0;
    *data = inside(v)->bytes != nullptr ? inside(v)->bytes : &none;
    *length = inside(v)->length;
    return 1;
}

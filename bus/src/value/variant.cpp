// SPDX-License-Identifier: MIT
// Typed values and lists of them (kex.h, "Variants").
#include "value/variant.h"
#include "base/limits.h"
#include "base/list.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

using namespace bus;

namespace {

constexpr uint32_t kFirstCapacity = 8;

void reset(variant_t *v, uint32_t type) {
    memset(v, 0, sizeof *v);
    inside(v)->type = type;
    if (type == VARIANT_FD)
        inside(v)->integer = -1;
}

int set_integer(variant_t *v, uint32_t type, int64_t integer) {
    if (v == nullptr)
        return 0;
    variant_cleanup(v);
    reset(v, type);
    inside(v)->integer = integer;
    return 1;
}

// Copies `length` bytes and ends them with a zero byte.
void *copy_bytes(const void *data, uint32_t length) {
    uint8_t *copy = static_cast<uint8_t *>(malloc(size_t{length} + 1));
    if (copy == nullptr)
        return nullptr;
    if (length > 0)
        memcpy(copy, data, length);
    copy[length] = 0;
    return copy;
}

bool is_integer(uint32_t type) {
    return type == VARIANT_INT16 || type == VARIANT_INT32 || type == VARIANT_UINT16 || type == VARIANT_UINT32;
}

// Empties a list; its memory stays for the owner to release.
void clear(variant_list_t *list) {
    for (uint32_t i = 0; i < list->count; i++)
        variant_cleanup(&list->items[i]);
    free(list->items);
}

variant_list_t *copy_list(const variant_list_t *list) {
    variant_list_t *copy = list_create();
    if (copy == nullptr || list == nullptr)
        return copy;
    for (uint32_t i = 0; i < list->count; i++) {
        variant_t *item = list_append(copy);
        if (item == nullptr || !value_copy(item, &list->items[i])) {
            variant_list_destroy(copy);
            return nullptr;
        }
    }
    return copy;
}

} // namespace

namespace bus {

void value_own_fd(variant_t *v, int fd) {
    set_integer(v, VARIANT_FD, fd);
    inside(v)->ownership = fd >= 0 ? Ownership::ours : Ownership::borrowed;
}

bool value_set_text(variant_t *v, const void *text, uint32_t length) {
    // Copied before the old value goes: a caller may set a variant from its own text.
    char *copy = static_cast<char *>(copy_bytes(text, length));
    if (copy == nullptr)
        return false;
    variant_cleanup(v);
    reset(v, VARIANT_TEXT);
    inside(v)->text = copy;
    return true;
}

bool value_copy(variant_t *copy, const variant_t *v) {
    const Value *from = inside(v);
    reset(copy, from->type);
    switch (from->type) {
    case VARIANT_TEXT:
        return from->text == nullptr || value_set_text(copy, from->text, static_cast<uint32_t>(strlen(from->text)));
    case VARIANT_BYTES:
        return variant_setByteArray(copy, from->bytes, from->length) != 0;
    case VARIANT_LIST:
        inside(copy)->list = copy_list(from->list);
        return inside(copy)->list != nullptr;
    default:
        inside(copy)->integer = from->integer;
        return true;
    }
}

uint32_t value_nesting(const variant_t *v) {
    if (inside(v)->type != VARIANT_LIST)
        return 0;
    uint32_t deepest = 0;
    const variant_list_t *list = inside(v)->list;
    for (uint32_t i = 0; list != nullptr && i < list->count; i++) {
        uint32_t nesting = value_nesting(&list->items[i]);
        deepest = nesting > deepest ? nesting : deepest;
    }
    return deepest + 1;
}

bool value_integer(const variant_t *v, int64_t lowest, int64_t highest, int64_t *integer) {
    if (v == nullptr || !is_integer(inside(v)->type))
        return false;
    *integer = inside(v)->integer;
    return *integer >= lowest && *integer <= highest;
}

variant_list_t *list_create() {
    return make<variant_list_t>();
}

variant_t *list_append(variant_list_t *list) {
    if (list->count == list->capacity) {
        uint32_t capacity = list->capacity > 0 ? list->capacity * 2 : kFirstCapacity;
        void *items = capacity > list->capacity ? reallocarray(list->items, capacity, sizeof(variant_t)) : nullptr;
        if (items == nullptr)
            return nullptr;
        list->items = static_cast<variant_t *>(items);
        list->capacity = capacity;
    }
    variant_t *item = &list->items[list->count++];
    reset(item, VARIANT_NONE);
    return item;
}

} // namespace bus

int variant_initialize(variant_t *v, uint32_t type) {
    bool known = is_integer(type) || type == VARIANT_TEXT || type == VARIANT_BOOL || type == VARIANT_LIST ||
                 type == VARIANT_FD || type == VARIANT_BYTES || type == VARIANT_NONE;
    if (v == nullptr || !known)
        return 0;
    reset(v, type);
    return 1;
}

int variant_setChar(variant_t *v, const char *text) {
    if (v == nullptr || text == nullptr)
        return 0;
    size_t length = strlen(text);
    return length < UINT32_MAX && value_set_text(v, text, static_cast<uint32_t>(length));
}

int variant_setBool(variant_t *v, int value) {
    return set_integer(v, VARIANT_BOOL, value != 0);
}
int variant_setInt16(variant_t *v, int16_t value) {
    return set_integer(v, VARIANT_INT16, value);
}
int variant_setInt32(variant_t *v, int32_t value) {
    return set_integer(v, VARIANT_INT32, value);
}
int variant_setUInt16(variant_t *v, uint16_t value) {
    return set_integer(v, VARIANT_UINT16, value);
}
int variant_setUInt32(variant_t *v, uint32_t value) {
    return set_integer(v, VARIANT_UINT32, value);
}

int variant_setByteArray(variant_t *v, const void *data, uint32_t length) {
    if (v == nullptr || (data == nullptr && length > 0) || length == UINT32_MAX)
        return 0;
    uint8_t *copy = static_cast<uint8_t *>(copy_bytes(data, length));
    if (copy == nullptr)
        return 0;
    variant_cleanup(v);
    reset(v, VARIANT_BYTES);
    inside(v)->bytes = copy;
    inside(v)->length = length;
    return 1;
}

int variant_setFd(variant_t *v, int fd) {
    return set_integer(v, VARIANT_FD, fd);
}

int variant_toBool(const variant_t *v, int *value) {
    if (v == nullptr || value == nullptr || (inside(v)->type != VARIANT_BOOL && !is_integer(inside(v)->type)))
        return 0;
    *value = inside(v)->integer != 0;
    return 1;
}

int variant_toInt16(const variant_t *v, int16_t *value) {
    int64_t integer;
    if (value == nullptr || !value_integer(v, INT16_MIN, INT16_MAX, &integer))
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

void variant_cleanup(variant_t *v) {
    if (v == nullptr)
        return;
    Value *value = inside(v);
    if (value->type == VARIANT_TEXT)
        free(value->text);
    else if (value->type == VARIANT_BYTES)
        free(value->bytes);
    else if (value->type == VARIANT_LIST)
        variant_list_destroy(value->list);
    else if (value->type == VARIANT_FD && value->ownership == Ownership::ours)
        close(static_cast<int>(value->integer));
    reset(v, VARIANT_NONE);
}

variant_list_t *variant_da_list(variant_t *v) {
    if (v == nullptr || inside(v)->type != VARIANT_LIST)
        return nullptr;
    if (inside(v)->list == nullptr)
        inside(v)->list = list_create();
    return inside(v)->list;
}

int variant_list_add(variant_list_t *list, const variant_t *v) {
    if (list == nullptr || v == nullptr || value_nesting(v) >= kMaxNesting)
        return 0;
    // Copied first: v may stand in the very list that grows.
    variant_t copy;
    variant_t *item = value_copy(&copy, v) ? list_append(list) : nullptr;
    if (item == nullptr) {
        variant_cleanup(&copy);
        return 0;
    }
    *item = copy;
    return 1;
}

uint32_t variant_list_size(const variant_list_t *list) {
    return list != nullptr ? list->count : 0;
}

const variant_t *variant_list_at(const variant_list_t *list, uint32_t index) {
    return list != nullptr && index < list->count ? &list->items[index] : nullptr;
}

void variant_list_destroy(variant_list_t *list) {
    if (list == nullptr)
        return;
    clear(list);
    free(list);
}

uint32_t variant_type(const variant_t *v) {
    return v != nullptr ? inside(v)->type : uint32_t{VARIANT_NONE};
}

int variant_toChar(const variant_t *v, const char **text) {
    if (v == nullptr || text == nullptr || inside(v)->type != VARIANT_TEXT)
        return 0;
    *text = inside(v)->text != nullptr ? inside(v)->text : "";
    return 1;
}

int variant_toUInt16(const variant_t *v, uint16_t *value) {
    int64_t integer;
    if (value == nullptr || !value_integer(v, 0, UINT16_MAX, &integer))
        return 0;
    *value = static_cast<uint16_t>(integer);
    return 1;
}

int variant_toInt32(const variant_t *v, int32_t *value) {
    int64_t integer;
    if (value == nullptr || !value_integer(v, INT32_MIN, INT32_MAX, &integer))
        return 0;
    *value = static_cast<int32_t>(integer);
    return 1;
}

int variant_toUInt32(const variant_t *v, uint32_t *value) {
    int64_t integer;
    if (value == nullptr || !value_integer(v, 0, UINT32_MAX, &integer))
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

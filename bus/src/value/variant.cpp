// SPDX-License-Identifier: MIT
// What values and lists of them consist of (kex.h, "Variants"): making, copying and releasing them.
#include "value/variant.h"
#include "base/closer.h"
#include "base/footprint.h"
#include "base/limits.h"
#include "base/list.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

using namespace bus;

namespace {

constexpr uint32_t kFirstCapacity = 8;

void value_reset(variant_t *v, uint32_t type) {
    memset(v, 0, sizeof *v);
    inside(v)->type = type;
    if (type == VARIANT_FD)
        inside(v)->integer = -1;
}

// Copies `length` bytes and ends them with a zero byte.
void *bytes_copy(const void *data, uint32_t length) {
    uint8_t *copy = static_cast<uint8_t *>(memory_take(size_t{length} + 1));
    if (copy == nullptr)
        return nullptr;
    if (length > 0)
        memcpy(copy, data, length);
    copy[length] = 0;
    return copy;
}

// Empties a list; its memory stays for the owner to release.
void list_clear(variant_list_t *list) {
    for (uint32_t i = 0; i < list->count; i++)
        variant_cleanup(&list->items[i]);
    free(list->items);
}

variant_list_t *list_copy(const variant_list_t *list) {
    variant_list_t *copy = make<variant_list_t>();
    if (copy == nullptr || list == nullptr)
        return copy;
    if (!list_reserve(copy, list->count)) {
        free(copy);
        return nullptr;
    }
    for (uint32_t i = 0; i < list->count; i++) {
        if (!value_copy(list_append(copy), &list->items[i])) { // there is room for all
            variant_list_destroy(copy);
            return nullptr;
        }
    }
    return copy;
}

} // namespace

namespace bus {

void value_set_integer(variant_t *v, uint32_t type, int64_t integer) {
    variant_cleanup(v);
    value_reset(v, type);
    inside(v)->integer = integer;
}

void value_own_fd(variant_t *v, int fd) {
    value_set_integer(v, VARIANT_FD, fd);
    inside(v)->ownership = fd >= 0 ? Ownership::ours : Ownership::borrowed;
}

bool value_set_text(variant_t *v, const void *text, uint32_t length) {
    // Copied before the old value goes: a caller may set a variant from its own text.
    char *copy = static_cast<char *>(bytes_copy(text, length));
    if (copy == nullptr)
        return false;
    variant_cleanup(v);
    value_reset(v, VARIANT_TEXT);
    inside(v)->text = copy;
    return true;
}

bool value_set_bytes(variant_t *v, const void *bytes, uint32_t length) {
    uint8_t *copy = static_cast<uint8_t *>(bytes_copy(bytes, length));
    if (copy == nullptr)
        return false;
    variant_cleanup(v);
    value_reset(v, VARIANT_BYTES);
    inside(v)->bytes = copy;
    inside(v)->length = length;
    return true;
}

bool value_copy(variant_t *copy, const variant_t *v) {
    const Value *from = inside(v);
    value_reset(copy, from->type);
    switch (from->type) {
    case VARIANT_TEXT:
        return from->text == nullptr || value_set_text(copy, from->text, static_cast<uint32_t>(strlen(from->text)));
    case VARIANT_BYTES:
        return value_set_bytes(copy, from->bytes, from->length);
    case VARIANT_LIST:
        inside(copy)->list = list_copy(from->list);
        return inside(copy)->list != nullptr;
    default:
        inside(copy)->integer = from->integer;
        return true;
    }
}

uint32_t value_footprint(const variant_t *v) {
    const Value *value = inside(v);
    if (value->type == VARIANT_TEXT)
        return value->text != nullptr ? footprint(strlen(value->text) + 1) : 0;
    if (value->type == VARIANT_BYTES)
        return value->bytes != nullptr ? footprint(size_t{value->length} + 1) : 0;
    if (value->type != VARIANT_LIST || value->list == nullptr)
        return 0;
    const variant_list_t *list = value->list;
    uint32_t whole = footprint(sizeof *list);
    whole += list->items != nullptr ? footprint(list->capacity * sizeof(variant_t)) : 0;
    for (uint32_t i = 0; i < list->count; i++)
        whole += value_footprint(&list->items[i]);
    return whole;
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

bool list_reserve(variant_list_t *list, uint32_t capacity) {
    if (capacity <= list->capacity)
        return true;
    void *items = memory_grow(list->items, capacity, sizeof(variant_t));
    if (items == nullptr)
        return false;
    list->items = static_cast<variant_t *>(items);
    list->capacity = capacity;
    return true;
}

variant_t *list_append(variant_list_t *list) {
    const uint32_t more = list->capacity > 0 ? list->capacity * 2 : kFirstCapacity;
    if (list->count == list->capacity && (more <= list->capacity || !list_reserve(list, more)))
        return nullptr;
    variant_t *item = &list->items[list->count++];
    value_reset(item, VARIANT_NONE);
    return item;
}

} // namespace bus

int variant_initialize(variant_t *v, uint32_t type) {
    bool known = value_is_integer(type) || type == VARIANT_TEXT || type == VARIANT_BOOL || type == VARIANT_LIST ||
                 type == VARIANT_FD || type == VARIANT_BYTES || type == VARIANT_NONE;
    if (v == nullptr || !known)
        return 0;
    value_reset(v, type);
    return 1;
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
        foreign_descriptor_close(static_cast<int>(value->integer)); // read from an argument, as a rule
    value_reset(v, VARIANT_NONE);
}

uint32_t variant_type(const variant_t *v) {
    return v != nullptr ? inside(v)->type : uint32_t{VARIANT_NONE};
}

variant_list_t *variant_da_list(variant_t *v) {
    if (v == nullptr || inside(v)->type != VARIANT_LIST)
        return nullptr;
    if (inside(v)->list == nullptr)
        inside(v)->list = make<variant_list_t>();
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
    list_clear(list);
    free(list);
}

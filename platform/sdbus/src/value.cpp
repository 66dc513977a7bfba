// SPDX-License-Identifier: MIT
// Variants and lists (kex.h, "Variants").
#include "value.h"

#include <string.h>
#include <unistd.h>

using namespace sdbus;

namespace {

bool type_is_integer(uint32_t type) {
    return type == VARIANT_INT16 || type == VARIANT_INT32 || type == VARIANT_UINT16 || type == VARIANT_UINT32;
}

bool type_has_text(uint32_t type) {
    return type == VARIANT_TEXT || type == VARIANT_BYTES;
}

int number_set(variant_t *v, uint32_t type, int64_t number) {
    if (v == nullptr)
        return 0;
    variant_cleanup(v);
    variant_initialize(v, type);
    inside(v)->number = number;
    return 1;
}

template <class Number>
int number_get(const variant_t *v, Number *value) {
    if (v == nullptr || value == nullptr || !type_is_integer(inside(v)->type) ||
        !std::in_range<Number>(inside(v)->number))
        return 0;
    *value = static_cast<Number>(inside(v)->number);
    return 1;
}

} // namespace

namespace sdbus {

void value_set_text(variant_t *v, uint32_t type, const void *data, size_t length) {
    // Copied before the old value goes: it may be set from its own text.
    std::string *text = new std::string(static_cast<const char *>(data), length);
    variant_cleanup(v);
    variant_initialize(v, type);
    inside(v)->text = text;
}

bool value_copy(variant_t *copy, const variant_t *v) {
    const Inside *from = inside(v);
    if (variant_initialize(copy, from->type) == 0) { // nobody has initialised it
        variant_initialize(copy, VARIANT_NONE);
        return false;
    }
    inside(copy)->number = from->number;
    if (type_has_text(from->type) && from->text != nullptr)
        inside(copy)->text = new std::string(*from->text);
    if (from->type == VARIANT_LIST && from->list != nullptr) {
        for (const variant_t &item : from->list->items)
            variant_list_add(variant_da_list(copy), &item);
    }
    return true;
}

variant_list_t *list_take(variant_list_t *list) {
    variant_list_t *taken = new variant_list_t;
    for (variant_t &item : list->items) {
        variant_t *to = &taken->items.emplace_back();
        Inside *from = inside(&item);
        if (from->type == VARIANT_LIST) {
            variant_initialize(to, VARIANT_LIST);
            inside(to)->list = from->list != nullptr ? list_take(from->list) : nullptr;
            continue;
        }
        value_copy(to, &item);
        inside(to)->owned = from->owned;
        if (from->type == VARIANT_FD) {
            from->number = -1;
            from->owned = 0;
        }
    }
    return taken;
}

void value_weigh(const variant_t *v, Weight &weight) {
    const Inside *value = inside(v);
    weight.bytes += 16;
    weight.descriptors += value->type == VARIANT_FD && value->number >= 0;
    if (type_has_text(value->type) && value->text != nullptr)
        weight.bytes += value->text->size();
    if (value->type == VARIANT_LIST && value->list != nullptr) {
        for (const variant_t &item : value->list->items)
            value_weigh(&item, weight);
    }
}

} // namespace sdbus

int variant_initialize(variant_t *v, uint32_t type) {
    const bool known = type_is_integer(type) || type_has_text(type) || type == VARIANT_BOOL || type == VARIANT_LIST ||
                       type == VARIANT_FD || type == VARIANT_NONE;
    if (v == nullptr || !known)
        return 0;
    memset(v, 0, sizeof *v);
    inside(v)->type = type;
    inside(v)->number = type == VARIANT_FD ? -1 : 0;
    return 1;
}

void variant_cleanup(variant_t *v) {
    if (v == nullptr)
        return;
    Inside *value = inside(v);
    if (type_has_text(value->type))
        delete value->text;
    else if (value->type == VARIANT_LIST)
        variant_list_destroy(value->list);
    else if (value->owned != 0)
        close(static_cast<int>(value->number));
    variant_initialize(v, VARIANT_NONE);
}

int variant_setChar(variant_t *v, const char *text) {
    if (v == nullptr || text == nullptr)
        return 0;
    value_set_text(v, VARIANT_TEXT, text, strlen(text));
    return 1;
}

int variant_setByteArray(variant_t *v, const void *data, uint32_t length) {
    if (v == nullptr || (data == nullptr && length > 0))
        return 0;
    value_set_text(v, VARIANT_BYTES, data != nullptr ? data : "", length);
    return 1;
}

int variant_setBool(variant_t *v, int value) {
    return number_set(v, VARIANT_BOOL, value != 0);
}
int variant_setInt16(variant_t *v, int16_t value) {
    return number_set(v, VARIANT_INT16, value);
}
int variant_setInt32(variant_t *v, int32_t value) {
    return number_set(v, VARIANT_INT32, value);
}
int variant_setUInt16(variant_t *v, uint16_t value) {
    return number_set(v, VARIANT_UINT16, value);
}
int variant_setUInt32(variant_t *v, uint32_t value) {
    return number_set(v, VARIANT_UINT32, value);
}
int variant_setFd(variant_t *v, int fd) {
    return number_set(v, VARIANT_FD, fd < 0 ? -1 : fd);
}

int variant_toBool(const variant_t *v, int *value) {
    if (v == nullptr || value == nullptr || (inside(v)->type != VARIANT_BOOL && !type_is_integer(inside(v)->type)))
        return 0;
    *value = inside(v)->number != 0;
    return 1;
}
int variant_toInt16(const variant_t *v, int16_t *value) {
    return number_get(v, value);
}
int variant_toInt32(const variant_t *v, int32_t *value) {
    return number_get(v, value);
}
int variant_toUInt16(const variant_t *v, uint16_t *value) {
    return number_get(v, value);
}
int variant_toUInt32(const variant_t *v, uint32_t *value) {
    return number_get(v, value);
}

int variant_toChar(const variant_t *v, const char **text) {
    if (v == nullptr || text == nullptr || inside(v)->type != VARIANT_TEXT)
        return 0;
    *text = inside(v)->text != nullptr ? inside(v)->text->c_str() : "";
    return 1;
}

int variant_toByteArray(const variant_t *v, const void **data, uint32_t *length) {
    if (v == nullptr || data == nullptr || length == nullptr || inside(v)->type != VARIANT_BYTES)
        return 0;
    const std::string *bytes = inside(v)->text;
    *data = bytes != nullptr ? bytes->data() : "";
    *length = bytes != nullptr ? static_cast<uint32_t>(bytes->size()) : 0;
    return 1;
}

int variant_fd(const variant_t *v) {
    if (v == nullptr || inside(v)->type != VARIANT_FD)
        return -1;
    inside(const_cast<variant_t *>(v))->owned = 0; // whoever reads it closes it
    return static_cast<int>(inside(v)->number);
}

uint32_t variant_type(const variant_t *v) {
    return v != nullptr ? inside(v)->type : uint32_t{VARIANT_NONE};
}

variant_list_t *variant_da_list(variant_t *v) {
    if (v == nullptr || inside(v)->type != VARIANT_LIST)
        return nullptr;
    if (inside(v)->list == nullptr)
        inside(v)->list = new variant_list_t;
    return inside(v)->list;
}

int variant_list_add(variant_list_t *list, const variant_t *v) {
    if (list == nullptr || v == nullptr)
        return 0;
    variant_t copy; // first: v may stand around this very list
    if (!value_copy(&copy, v))
        return 0;
    list->items.push_back(copy);
    return 1;
}

uint32_t variant_list_size(const variant_list_t *list) {
    return list != nullptr ? static_cast<uint32_t>(list->items.size()) : 0;
}

const variant_t *variant_list_at(const variant_list_t *list, uint32_t index) {
    return index < variant_list_size(list) ? &list->items[index] : nullptr;
}

void variant_list_destroy(variant_list_t *list) {
    if (list == nullptr)
        return;
    for (variant_t &item : list->items)
        variant_cleanup(&item);
    delete list;
}

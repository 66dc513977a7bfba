// SPDX-License-Identifier: MIT
// Variants and lists of the fake bus. A variant holds a pointer to its value and a mark, so that one that was never
// initialised is told apart from an empty one.
#include <cstring>
#include <unistd.h>

#include "state.h"

using fake::act;
using fake::bus;
using fake::fails;
using fake::inside;
using fake::look;
using fake::Value;

namespace {

bool is_zero(const variant_t *v) {
    return v->opaque[0] == 0;
}

bool is_own(const variant_t *v) {
    const auto found = bus().state().variants.find(v);
    return found != bus().state().variants.end() && found->second.own;
}

// Puts a value behind a variant whose memory counts for nothing.
Value *fill(variant_t *v, const Value &value, bool own) {
    fake::Held &held = bus().state().variants[v];
    held.value = std::make_unique<Value>(value);
    held.own = own;
    held.filled = false;
    *v = variant_t{};
    v->opaque[0] = reinterpret_cast<uintptr_t>(held.value.get());
    return held.value.get();
}

// The value inside, to be changed; a zero-filled variant becomes an empty text first. Null: never initialised.
Value *holder(variant_t *v) {
    if (is_zero(v))
        return fill(v, Value::chars(""), false);
    return const_cast<Value *>(inside(v));
}

bool known_type(uint32_t type) {
    switch (type) {
    case VARIANT_TEXT:
    case VARIANT_INT16:
    case VARIANT_INT32:
    case VARIANT_UINT16:
    case VARIANT_UINT32:
    case VARIANT_BOOL:
    case VARIANT_LIST:
    case VARIANT_FD:
    case VARIANT_BYTES:
    case VARIANT_NONE:
        return true;
    default:
        return false;
    }
}

int set(const char *function, variant_t *v, const Value &value) {
    const bool ok = v && !fails(function);
    const bool is_return_value = bus().state().return_values.count(v) != 0;
    if (is_return_value)
        act("return_value = " + value.str() + (ok ? "" : " -> 0"));
    else
        look(std::string(function) + "(" + value.str() + ")" + (ok ? "" : " = 0"));
    Value *place = ok ? holder(v) : nullptr;
    if (!place)
        return 0;
    *place = value;
    bus().state().variants[v].filled = true;
    return 1;
}

} // namespace

namespace fake {

const Value *inside(const variant_t *v) {
    static const Value empty_text = Value::chars("");
    if (!v)
        return nullptr;
    if (is_zero(v))
        return &empty_text;
    const auto found = bus().state().variants.find(v);
    if (found == bus().state().variants.end() ||
        v->opaque[0] != reinterpret_cast<uintptr_t>(found->second.value.get())) {
        bus().problem("a variant was used that was never initialised");
        return nullptr;
    }
    return found->second.value.get();
}

void make_own(variant_t *v, const Value &value) {
    fill(v, value, true);
}

void drop_own(variant_t *v) {
    bus().state().variants.erase(v);
    *v = variant_t{};
}

bool number_of(const Value &value, bool booleans, int64_t *number) {
    switch (value.type) {
    case VARIANT_BOOL:
        if (!booleans)
            return false;
        break;
    case VARIANT_INT16:
    case VARIANT_INT32:
    case VARIANT_UINT16:
    case VARIANT_UINT32:
        break;
    default:
        return false;
    }
    *number = value.number;
    return true;
}

void drop_list(variant_list *list) {
    if (list->owns_descriptors)
        for (const variant_t &item : list->items) {
            const Value *value = inside(&item);
            if (value->type == VARIANT_FD && value->number >= 0 && list->read.count(&item) == 0)
                close(static_cast<int>(value->number));
        }
    for (variant_t &item : list->items)
        drop_own(&item);
    bus().state().lists.erase(list);
    delete list;
}

} // namespace fake

extern "C" {

int variant_initialize(variant_t *v, uint32_t type) {
    const bool ok = v && known_type(type);
    look(fake::text("variant_initialize(%u)%s", type, ok ? "" : " = 0"));
    if (!ok)
        return 0;
    Value value;
    value.type = type;
    if (type == VARIANT_FD)
        value.number = -1;
    const auto known = bus().state().variants.find(v);
    if (known != bus().state().variants.end() && known->second.filled && !known->second.own)
        bus().problem("a variant was initialised again without a clean-up; it held " + known->second.value->str());
    fill(v, value, is_own(v));
    return 1;
}

int variant_setChar(variant_t *v, const char *text) {
    if (!text) {
        look("variant_setChar(null) = 0");
        return 0;
    }
    return set("variant_setChar", v, Value::chars(text));
}
int variant_setBool(variant_t *v, int value) {
    return set("variant_setBool", v, Value::boolean(value != 0));
}
int variant_setInt16(variant_t *v, int16_t value) {
    return set("variant_setInt16", v, Value::i16(value));
}
int variant_setInt32(variant_t *v, int32_t value) {
    return set("variant_setInt32", v, Value::i32(value));
}
int variant_setUInt16(variant_t *v, uint16_t value) {
    return set("variant_setUInt16", v, Value::u16(value));
}
int variant_setUInt32(variant_t *v, uint32_t value) {
    return set("variant_setUInt32", v, Value::u32(value));
}
int variant_setByteArray(variant_t *v, const void *data, uint32_t length) {
    if (!data && length != 0) {
        look("variant_setByteArray(null) = 0");
        return 0;
    }
    return set("variant_setByteArray", v, length ? Value::bytes(data, length) : Value::bytes(std::string()));
}
int variant_setFd(variant_t *v, int fd) {
    return set("variant_setFd", v, Value::fd(fd));
}

int variant_toBool(const variant_t *v, int *value) {
    const Value *held = inside(v);
    int64_t number = 0;
    if (!held || !fake::number_of(*held, true, &number) || fails("variant_toBool"))
        return 0;
    *value = number != 0;
    return 1;
}

int variant_toInt16(const variant_t *v, int16_t *value) {
    const Value *held = inside(v);
    int64_t number = 0;
    if (!held || !fake::number_of(*held, false, &number) || number < INT16_MIN || number > INT16_MAX ||
        fails("variant_toInt16"))
        return 0;
    *value = static_cast<int16_t>(number);
    return 1;
}

int variant_toUInt16(const variant_t *v, uint16_t *value) {
    const Value *held = inside(v);
    int64_t number = 0;
    if (!held || !fake::number_of(*held, false, &number) || number < 0 || number > UINT16_MAX)
        return 0;
    *value = static_cast<uint16_t>(number);
    return 1;
}

int variant_toInt32(const variant_t *v, int32_t *value) {
    const Value *held = inside(v);
    int64_t number = 0;
    if (!held || !fake::number_of(*held, false, &number) || number < INT32_MIN || number > INT32_MAX)
        return 0;
    *value = static_cast<int32_t>(number);
    return 1;
}

int variant_toUInt32(const variant_t *v, uint32_t *value) {
    const Value *held = inside(v);
    int64_t number = 0;
    if (!held || !fake::number_of(*held, false, &number) || number < 0 || number > UINT32_MAX)
        return 0;
    *value = static_cast<uint32_t>(number);
    return 1;
}

int variant_toChar(const variant_t *v, const char **text) {
    const Value *held = inside(v);
    if (!held || held->type != VARIANT_TEXT)
        return 0;
    *text = held->data.c_str();
    return 1;
}

int variant_toByteArray(const variant_t *v, const void **data, uint32_t *length) {
    const Value *held = inside(v);
    if (!held || held->type != VARIANT_BYTES)
        return 0;
    *data = held->data.data();
    *length = static_cast<uint32_t>(held->data.size());
    return 1;
}

uint32_t variant_type(const variant_t *v) {
    const Value *held = inside(v);
    return held ? held->type : static_cast<uint32_t>(VARIANT_NONE);
}

int variant_fd(const variant_t *v) {
    const Value *held = inside(v);
    if (!held || held->type != VARIANT_FD)
        return -1;
    for (variant_list *list : bus().state().lists)
        for (const variant_t &item : list->items)
            if (&item == v)
                list->read.insert(v);
    return static_cast<int>(held->number);
}

void variant_cleanup(variant_t *v) {
    if (!v)
        return;
    look("variant_cleanup()");
    if (is_zero(v) || !inside(v))
        return;
    if (is_own(v)) {
        fill(v, Value::chars(""), true);
        return;
    }
    bus().state().variants.erase(v);
    *v = variant_t{};
}

variant_list_t *variant_da_list(variant_t *v) {
    const Value *held = v && !is_zero(v) ? inside(v) : nullptr;
    const bool ok = held && held->type == VARIANT_LIST && !fails("variant_da_list");
    look(std::string("variant_da_list()") + (ok ? "" : " = null"));
    if (!ok)
        return nullptr;
    bus().state().variants[v].filled = true;
    // The list inside a variant is its value itself; the mark on the pointer tells it from a list of its own.
    return reinterpret_cast<variant_list_t *>(reinterpret_cast<uintptr_t>(holder(v)) | 1);
}

int variant_list_add(variant_list_t *list, const variant_t *v) {
    const uintptr_t word = reinterpret_cast<uintptr_t>(list);
    const Value *held = inside(v);
    const bool ok = list && held && !fails("variant_list_add");
    look("variant_list_add(" + (held ? held->str() : std::string("null")) + ")" + (ok ? "" : " = 0"));
    if (!ok)
        return 0;
    if (word & 1) {
        Value copy = *held;
        reinterpret_cast<Value *>(word & ~static_cast<uintptr_t>(1))->items.push_back(std::move(copy));
    } else {
        bus().problem("variant_list_add on a received list");
    }
    return 1;
}

uint32_t variant_list_size(const variant_list_t *list) {
    const uintptr_t word = reinterpret_cast<uintptr_t>(list);
    if (word & 1)
        return static_cast<uint32_t>(reinterpret_cast<const Value *>(word & ~static_cast<uintptr_t>(1))->items.size());
    if (!list)
        return 0;
    return static_cast<uint32_t>(list->items.size());
}

const variant_t *variant_list_at(const variant_list_t *list, uint32_t index) {
    if (!list || (reinterpret_cast<uintptr_t>(list) & 1) || index >= list->items.size())
        return nullptr;
    return &list->items[index];
}

void variant_list_destroy(variant_list_t *list) {
    look("variant_list_destroy()");
    if (!list)
        return;
    if (bus().state().lists.count(list) == 0) {
        bus().problem("a list was destroyed twice, or was never handed out");
        return;
    }
    fake::drop_list(list);
}

} // extern "C"

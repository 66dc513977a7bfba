// SPDX-License-Identifier: MIT
// What a function reads of its call (kex.h, argument_get...).
#include "calls/call.h"
#include "value/variant.h"

#include <string.h>

using namespace bus;

namespace {

constexpr uint32_t kShortestArray = 1024;

const wire::Argument *argument_find_exact(const argument_list_t *a, const char *name, size_t length) {
    for (uint32_t i = 0; i < a->parsed.count; i++) {
        if (text_equals(a->parsed.arguments[i].name, name, length))
            return &a->parsed.arguments[i];
    }
    return nullptr;
}

// By its own name first, then by the other names its declaration gives it.
const wire::Argument *argument_find(const argument_list_t *a, const char *name) {
    size_t length = strlen(name);
    const wire::Argument *argument = argument_find_exact(a, name, length);
    const char *names = argument == nullptr ? function_argument_names(a->function, name, length) : nullptr;
    while (names != nullptr && argument == nullptr) {
        size_t end = text_length_until(names, '|');
        argument = argument_find_exact(a, names, end);
        names = names[end] == '|' ? names + end + 1 : nullptr;
    }
    return argument;
}

enum class Presence { missing, without_value, present };

// Missing is also one of a type that `wanted` does not accept.
Presence argument_look(const argument_list_t *a, const char *name, bool (*wanted)(uint32_t type),
                       const wire::Argument *&argument) {
    argument = a != nullptr && name != nullptr ? argument_find(a, name) : nullptr;
    if (argument == nullptr)
        return Presence::missing;
    const uint32_t type = wire::argument_type(a->call->message, *argument);
    if (type == VARIANT_NONE)
        return Presence::without_value;
    return wanted(type) ? Presence::present : Presence::missing;
}

// Reads the argument into *value, which the caller cleans.
Presence argument_take(argument_list_t *a, const char *name, bool (*wanted)(uint32_t type), variant_t *value) {
    const wire::Argument *argument;
    variant_initialize(value, VARIANT_NONE);
    const Presence presence = argument_look(a, name, wanted, argument);
    if (presence != Presence::present)
        return presence;
    function_call_t *call = a->call;
    const bool read = wire::argument_read(call->message, *argument, &call->descriptors, value);
    return read ? Presence::present : Presence::missing;
}

bool type_is_text(uint32_t type) {
    return type == VARIANT_TEXT;
}
bool type_is_array(uint32_t type) {
    return type == VARIANT_BYTES;
}
bool type_is_list(uint32_t type) {
    return type == VARIANT_LIST;
}

template <class Number>
int argument_get_number(argument_list_t *a, const char *name, Number *number,
                        int (*convert)(const variant_t *, Number *)) {
    variant_t value;
    return number != nullptr && argument_take(a, name, value_is_integer, &value) == Presence::present &&
           convert(&value, number) != 0;
}

} // namespace

namespace bus {

bool argument_find_text(const argument_list_t *arguments, const char *name, Text &text) {
    const wire::Argument *argument = argument_find(arguments, name);
    return argument != nullptr && wire::argument_text(arguments->call->message, *argument, text);
}

} // namespace bus

int argument_getChar(argument_list_t *a, const char *name, uint32_t, char **text) {
    variant_t value;
    if (text == nullptr)
        return 0;
    Presence presence = argument_take(a, name, type_is_text, &value);
    if (presence == Presence::missing)
        return 0;
    // The text moves out of the value: both are malloc's.
    *text = presence == Presence::present ? inside(&value)->text : nullptr;
    return 1;
}

int argument_getUInt16(argument_list_t *a, const char *name, uint32_t, uint16_t *value) {
    return argument_get_number(a, name, value, variant_toUInt16);
}

int argument_getUInt32(argument_list_t *a, const char *name, uint32_t, uint32_t *value) {
    return argument_get_number(a, name, value, variant_toUInt32);
}

int argument_getInt32(argument_list_t *a, const char *name, uint32_t, int32_t *value) {
    return argument_get_number(a, name, value, variant_toInt32);
}

int argument_getByteArray(argument_list_t *a, const char *name, uint32_t, void **data, uint32_t *length) {
    const wire::Argument *argument;
    Text bytes;
    if (data == nullptr || length == nullptr)
        return 0;
    const Presence presence = argument_look(a, name, type_is_array, argument);
    if (presence == Presence::without_value) {
        *data = nullptr;
        *length = 0;
        return 1;
    }
    if (presence == Presence::missing || !wire::argument_bytes(a->call->message, *argument, bytes))
        return 0;
    const uint32_t room = bytes.length > kShortestArray ? bytes.length : kShortestArray;
    uint8_t *block = static_cast<uint8_t *>(memory_take(room));
    if (block == nullptr)
        return 0;
    memcpy(block, bytes.bytes, bytes.length);
    memset(block + bytes.length, 0, room - bytes.length);
    *data = block;
    *length = bytes.length;
    return 1;
}

int argument_getList(argument_list_t *a, const char *name, uint32_t, variant_list_t **list) {
    variant_t value;
    if (list == nullptr)
        return 0;
    Presence presence = argument_take(a, name, type_is_list, &value);
    if (presence == Presence::missing)
        return 0;
    *list = presence == Presence::present ? inside(&value)->list : nullptr;
    return 1;
}

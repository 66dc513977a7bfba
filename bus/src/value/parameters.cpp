// SPDX-License-Identifier: MIT
// Implements parameters.h.
#include "value/parameters.h"
#include "base/list.h"
#include "value/variant.h"

#include <string.h>

namespace bus {

namespace {

bool is_allocated(const Parameters &parameters, const Parameter *parameter) {
    const uint8_t *at = reinterpret_cast<const uint8_t *>(parameter);
    return at < parameters.room_begin || at >= parameters.room;
}

// Of what a text or a byte array consists of.
size_t value_bytes(const Value *value) {
    if (value->type == VARIANT_TEXT)
        return value->text != nullptr ? strlen(value->text) : 0;
    return value->type == VARIANT_BYTES ? value->length : 0;
}

// With room for its name and so much more. Null: no memory.
Parameter *parameter_take(Parameters &parameters, size_t size) {
    const size_t whole = (size + alignof(Parameter) - 1) / alignof(Parameter) * alignof(Parameter);
    if (whole > static_cast<size_t>(parameters.room_end - parameters.room))
        return static_cast<Parameter *>(memory_take(size));
    void *taken = parameters.room;
    parameters.room += whole;
    return static_cast<Parameter *>(taken);
}

// Texts and byte arrays stand in `room`, with a zero byte behind them. False: no memory.
bool parameter_set(Parameter *parameter, const variant_t *value, uint8_t *room, size_t bytes) {
    const Value *from = inside(value);
    if (from->type != VARIANT_TEXT && from->type != VARIANT_BYTES)
        return value_copy(&parameter->value, value);
    Value *copy = inside(&parameter->value);
    *copy = {};
    copy->type = from->type;
    copy->length = from->length;
    copy->bytes = room;
    if (bytes > 0)
        memcpy(room, from->bytes, bytes);
    room[bytes] = 0;
    return true;
}

void parameter_free(Parameters &parameters, Parameter *parameter) {
    if (inside(&parameter->value)->type == VARIANT_LIST)
        variant_cleanup(&parameter->value);
    if (is_allocated(parameters, parameter))
        free(parameter);
}

} // namespace

void parameters_begin(Parameters &parameters, void *room, uint32_t size) {
    parameters = {};
    parameters.room_begin = parameters.room = static_cast<uint8_t *>(room);
    parameters.room_end = parameters.room + size;
}

bool parameters_add(Parameters &parameters, const char *name, const variant_t *value) {
    const size_t length = strlen(name);
    const size_t bytes = value_bytes(inside(value));
    Parameter *parameter = parameter_take(parameters, sizeof(Parameter) + length + 1 + bytes + 1);
    if (parameter == nullptr)
        return false;
    parameter->next = nullptr;
    char *place = reinterpret_cast<char *>(parameter + 1);
    // No packet has room for a name that is cut here.
    parameter->name = {place, length < UINT32_MAX ? static_cast<uint32_t>(length) : UINT32_MAX};
    memcpy(place, name, length + 1);
    if (!parameter_set(parameter, value, reinterpret_cast<uint8_t *>(place + length + 1), bytes)) {
        parameter_free(parameters, parameter);
        return false;
    }
    (parameters.last != nullptr ? parameters.last->next : parameters.first) = parameter;
    parameters.last = parameter;
    parameters.count++;
    return true;
}

void parameters_clear(Parameters &parameters) {
    for (Parameter *parameter = parameters.first; parameter != nullptr;) {
        Parameter *following = parameter->next;
        parameter_free(parameters, parameter);
        parameter = following;
    }
    parameters.first = parameters.last = nullptr;
    parameters.count = 0;
}

} // namespace bus

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

// With room for its name. Null: no memory.
Parameter *parameter_take(Parameters &parameters, size_t size) {
    const size_t whole = (size + alignof(Parameter) - 1) / alignof(Parameter) * alignof(Parameter);
    if (whole > static_cast<size_t>(parameters.room_end - parameters.room))
        return static_cast<Parameter *>(memory_take(size));
    void *taken = parameters.room;
    parameters.room += whole;
    return static_cast<Parameter *>(taken);
}

void parameter_free(Parameters &parameters, Parameter *parameter) {
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
    const size_t length = strlen(name) + 1;
    Parameter *parameter = parameter_take(parameters, sizeof(Parameter) + length);
    if (parameter == nullptr)
        return false;
    parameter->next = nullptr;
    parameter->name = reinterpret_cast<char *>(parameter + 1);
    memcpy(parameter->name, name, length);
    if (!value_copy(&parameter->value, value)) {
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

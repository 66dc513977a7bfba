// SPDX-License-Identifier: MIT
// Implements parameters.h.
#include "value/parameters.h"
#include "base/list.h"
#include "value/variant.h"

#include <string.h>

namespace bus {

namespace {

void parameter_free(Parameter *parameter) {
    variant_cleanup(&parameter->value);
    free(parameter->name);
    free(parameter);
}

} // namespace

bool parameters_add(Parameters &parameters, const char *name, const variant_t *value) {
    Parameter *parameter = make<Parameter>();
    if (parameter == nullptr)
        return false;
    parameter->name = memory_take_text(name);
    if (!value_copy(&parameter->value, value) || parameter->name == nullptr) {
        parameter_free(parameter);
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
        parameter_free(parameter);
        parameter = following;
    }
    parameters = {};
}

} // namespace bus

// SPDX-License-Identifier: MIT
// The named values of a call that is being made, in the order they were added.
#ifndef KEX_PARAMETERS_H
#define KEX_PARAMETERS_H

#include "base/contract.h"

namespace bus {

struct Parameter {
    Parameter *next;
    char *name;
    variant_t value;
};

struct Parameters {
    Parameter *first;
    Parameter *last;
    uint32_t count;
};

// Copies both. False: no memory.
bool parameters_add(Parameters &parameters, const char *name, const variant_t *value);
void parameters_clear(Parameters &parameters);

} // namespace bus

#endif

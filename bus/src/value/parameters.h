// SPDX-License-Identifier: MIT
// The named values of a call that is being made, in the order they were added.
#ifndef KEX_PARAMETERS_H
#define KEX_PARAMETERS_H

#include "base/contract.h"
#include "value/text.h"

#include <stddef.h>

namespace bus {

struct Parameter {
    Parameter *next;
    Text name;       // stands behind it
    variant_t value; // a text or a byte array stands behind the name
};

struct Parameters {
    Parameter *first;
    Parameter *last;
    uint32_t count;
    uint8_t *room_begin; // of whoever holds them, for the first ones; none: each is allocated
    uint8_t *room;       // what is left of it
    uint8_t *room_end;
};

// Room for the parameters of most calls, behind something that is allocated anyway. It has to be aligned like a
// Parameter.
constexpr uint32_t kParametersRoom = 4 * (sizeof(Parameter) + 64);

void parameters_begin(Parameters &parameters, void *room, uint32_t size);
// Copies both. False: no memory.
bool parameters_add(Parameters &parameters, const char *name, const variant_t *value);
void parameters_clear(Parameters &parameters);

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// What comes back to a request, or is being built for a call that arrived.
#ifndef KEX_REPLY_H
#define KEX_REPLY_H

#include "base/contract.h"
#include "value/text.h"

struct reply_item {
    reply_item_t *next;
    int32_t type;
    uint32_t code;
    char *description;
    char *info;
    variant_t value;
};

struct reply {
    reply_item_t *first;
    reply_item_t *last;
    uint32_t errors;
    bool being_built; // the reply of a running call: it takes error items
};

namespace bus {

// Releases the items; the reply itself may stand inside something else.
void reply_clear(reply_t *reply);
bool reply_append_error(reply_t *reply, uint32_t code, Text description, Text info);
// An empty return value to be filled; null: no memory.
variant_t *reply_append_value(reply_t *reply);
// Of the items, with all that they hold.
uint32_t reply_footprint(const reply_t *reply);

} // namespace bus

#endif

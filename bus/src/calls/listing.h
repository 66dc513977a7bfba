// SPDX-License-Identifier: MIT
// The built-in call that lists the tree, for tools.
#ifndef KEX_LISTING_H
#define KEX_LISTING_H

#include "calls/calls.h"

namespace bus {

// A list with one text per object. False: too much for one reply, or no memory.
bool listing_fill(const Calls *calls, variant_t *value);

} // namespace bus

#endif

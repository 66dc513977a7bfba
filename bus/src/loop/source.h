// SPDX-License-Identifier: MIT
// What the loop listens to.
#ifndef KEX_SOURCE_H
#define KEX_SOURCE_H

#include <stdint.h>

namespace bus {

enum class SourceKind : uint8_t { timer, stop, work, link, listener, watch };

struct Source {
    SourceKind kind;
    bool ready;   // the loop has seen something to read
    bool watched; // stands in the loop
    bool reads;   // what the loop asks the kernel for
    bool writes;
};

} // namespace bus

#endif

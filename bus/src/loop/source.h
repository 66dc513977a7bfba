// SPDX-License-Identifier: MIT
// A descriptor in the loop.
#ifndef KEX_SOURCE_H
#define KEX_SOURCE_H

namespace bus {

struct Source {
    int fd;
    void (*ready)(Source *source); // what the loop calls when the descriptor has something to read, or room to write
    bool watched;                  // stands in the loop
    bool reads;                    // what the loop asks the kernel for
    bool writes;
};

} // namespace bus

#endif

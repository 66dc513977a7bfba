// SPDX-License-Identifier: MIT
// Descriptors of the host's own in the bus's loop.
#ifndef KEX_WATCH_H
#define KEX_WATCH_H

#include "bus/bus.h"

namespace bus {

struct Watch : Source, Task, Node<Watch> {
    kex_t *bus;
    int fd;
    bool always_ready; // a plain file or /dev/null: the kernel does not poll it, reading never blocks
    void *userdata;
    void (*handler)(int fd, void *userdata);
};

void watch_ready(kex_t *bus, Watch *watch);
void watches_always_ready(kex_t *bus);
void watches_free(kex_t *bus);

} // namespace bus

#endif

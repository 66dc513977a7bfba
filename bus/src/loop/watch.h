// SPDX-License-Identifier: MIT
// Descriptors of the host's own in the loop (kex_host.h, kex_watch).
#ifndef KEX_WATCH_H
#define KEX_WATCH_H

#include "loop/loop.h"

namespace bus {

void watches_begin(Loop *loop);
void watches_end(Loop *loop);

// Watches the descriptor, or gives the watch there is another handler. False: it cannot be watched, or no memory.
bool watch_start(Loop *loop, int fd, void *userdata, void (*handler)(int fd, void *userdata));
// False: there is no such watch.
bool watch_stop(Loop *loop, int fd);

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// The listening side of a bus.
#ifndef KEX_LISTENER_H
#define KEX_LISTENER_H

#include "bus/bus.h"

namespace bus {

struct Listener : Source, Node<Listener> {
    kex_t *bus;
    peer_t *shell;
    bool ready;     // somebody may wait
    int lock_fd;    // -1: the socket was inherited
    char path[128]; // of our own socket; "": inherited, not ours to remove
};

bool listeners_ready(kex_t *bus);
// Takes in who waits at the listeners that are ready.
void listeners_accept(kex_t *bus);
void listener_close(Listener *listener);
void listeners_free(kex_t *bus);

} // namespace bus

#endif

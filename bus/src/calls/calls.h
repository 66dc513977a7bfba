// SPDX-License-Identifier: MIT
// Calls between processes: what the layer keeps.
#ifndef KEX_CALLS_H
#define KEX_CALLS_H

#include "transport/transport.h"

namespace bus {

struct Function;

struct Calls {
    Transport *transport;
    kex_t *bus;      // for handlers, which are given it; nothing of it is known here
    peer_t *handles; // newest first
    object_t *root;  // of the data model
    List<Function> functions;
    void (*closed_handler)(kex_t *bus, peer_t *peer, void *userdata);
    void *closed_userdata;
};

// False: no memory. calls_end() releases what was taken, also then.
bool calls_begin(Calls *calls, Transport *transport, kex_t *bus);
// After the transport has ended.
void calls_end(Calls *calls);

} // namespace bus

#endif

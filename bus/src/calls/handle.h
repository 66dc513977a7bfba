// SPDX-License-Identifier: MIT
// Handles: what a host holds for a peer or a listener (kex.h, peer_t). A handle is a number, not an address: a place in
// one table of the process, and how often that place had been given out. It outlives what it stands for, is never given
// to anybody else, and needs no memory once that is gone.
#ifndef KEX_HANDLE_H
#define KEX_HANDLE_H

#include "calls/calls.h"

namespace bus {

struct Peer;

// A place in the table. Valid until the next handle is made.
struct Handle {
    Calls *calls; // null: the place is free
    Peer *peer;   // null for a listener
    Listener *listener;
    uintptr_t round; // how often it has been given out
};

// Null: no memory.
peer_t *handle_create(Calls *calls);
// Null: it is no handle, or what it stood for is gone.
Handle *handle_find(const peer_t *handle);
// From now on it stands for nothing.
void handle_destroy(const peer_t *handle);
// The first one of this bus that stands for something; null: there is none.
peer_t *handle_first(const Calls *calls);

} // namespace bus

#endif

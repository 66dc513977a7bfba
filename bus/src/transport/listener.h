// SPDX-License-Identifier: MIT
// Sockets that peers connect to, each with its lock file (kex.h, connection_listenOnIPC).
#ifndef KEX_LISTENER_H
#define KEX_LISTENER_H

#include "transport/transport.h"

namespace bus {

// Null: the path is malformed or somebody else's (traced), or no memory.
Listener *listener_open(Transport *transport, const char *path);
void listener_close(Listener *listener);

// Takes in who waits.
void listeners_accept(Transport *transport);
// They had to pause (Transport::accept_at), and try again.
void listeners_resume(Transport *transport);
void listeners_close(Transport *transport);

} // namespace bus

#endif

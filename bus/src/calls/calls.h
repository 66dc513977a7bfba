// SPDX-License-Identifier: MIT
// Calls between processes: what the layer keeps.
#ifndef KEX_CALLS_H
#define KEX_CALLS_H

#include "transport/transport.h"

namespace bus {

struct Function;

// Calls that find no object or no function are traced, but a peer that sends many must not fill the trace.
struct MissedCalls {
    uint64_t period_end;
    uint32_t told; // in this period
    uint32_t more; // not told
};

struct Calls {
    Transport *transport;
    kex_t *bus;     // for handlers, which are given it; nothing of it is known here
    object_t *root; // of the data model
    List<Function> functions;
    List<Function> replaced; // by later ones while a call ran: its getters may read one of them
    MissedCalls missed;
    argument_list_t *running; // of the call whose function runs; null: none does
    int (*call_handler)(kex_t *bus, void *userdata);
    void *call_userdata;
    void (*failed_handler)(const kex_failed_call_t *call, void *userdata);
    void *failed_userdata;
    void (*closed_handler)(kex_t *bus, peer_t *peer, void *userdata);
    void *closed_userdata;
    bool unwelcome; // the last connection that began here ended before its listener said hello
};

// False: no memory. calls_end() releases what was taken, also then.
bool calls_begin(Calls *calls, Transport *transport, kex_t *bus);
// After the transport has ended.
void calls_end(Calls *calls);

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// Peers: what is kept for one while its connection lives, and the handles that hosts hold (kex.h; kex_host.h, "Peers").
#ifndef KEX_PEER_H
#define KEX_PEER_H

#include "calls/calls.h"
#include "calls/pending.h"
#include "transport/connection.h"

namespace bus {

// Lives until the close event has run.
struct Peer {
    Calls *calls;
    Connection *connection;
    peer_t *handle;
    bool close_told;              // the close event runs
    Pending pending;              // sent or queued, without an answer yet
    List<request_t> answered;     // whose replies wait for their handlers to run
    List<function_call_t> queued; // calls of the peer that have not been run yet
    function_call_t *running;     // the one whose function runs now
    request_t *awaited;           // kex_waitForReply runs for this one
    uint32_t awaited_by_it;       // serial of our answer that the peer says it waits for; 0: none
    void *closed_userdata;
    int (*closed_handler)(peer_t *peer, int event, void *userdata);
};

// The one of this connection, made if there is none yet. Null: no memory.
Peer *peer_for(Calls *calls, Connection *connection);
// The peer behind a handle as long as its connection is open, else null.
Peer *peer_open(peer_t *handle);
// Null: nobody listens there, or no memory.
peer_t *peer_connect(Calls *calls, const char *uri);
// The handle of a listener. Null: nobody can listen there, or no memory.
peer_t *peer_listen(Calls *calls, const char *path);
// Runs the peer's own handler, then the one for all, and ends the peer. Its handle stays.
void peer_close_event(Peer *peer);
void peers_end(Calls *calls);

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// The bus context: what all files of the bus share.
#ifndef KEX_BUS_H
#define KEX_BUS_H

#include "base/clock.h"
#include "base/contract.h"
#include "base/limits.h"
#include "base/list.h"
#include "loop/loop.h"

#include <signal.h>
#include <sys/types.h>

namespace bus {

struct Link;
struct Listener;
struct Function;

// Allow-lists and factors from the environment, read once per bus.
struct Environment {
    static constexpr uint32_t kMaxIds = 32;
    uint32_t uids[kMaxIds];
    uint32_t uid_count;
    uint32_t gids[kMaxIds];
    uint32_t gid_count;
    uint32_t time_factor;
};

void environment_read(Environment &environment);

} // namespace bus

struct connection {
    kex_t *bus;
};

// The handle hosts hold. It outlives its link, so that a closed peer's handle is never given to another: some twenty
// bytes per peer that ever said hello, until the bus goes.
struct peer {
    kex_t *bus;
    bus::Link *link;         // null once closed
    bus::Listener *listener; // for the peer that stands for a listener
    peer_t *next;
};

struct kex : bus::Node<kex> {
    connection_t connection;
    char name[bus::kMaxProcessName + 1];
    bus::Environment environment;

    bus::Loop loop;
    bus::Module module;
    bool ending; // inside kex_destroy: nothing new begins

    bus::List<bus::Link> links; // oldest first
    bus::List<bus::Listener> listeners;
    uint32_t open_links;
    uint32_t taps;
    uint32_t last_number; // of a connection
    bool output_waits;    // something was queued outside a turn
    peer_t *peers;

    object_t *root;
    bus::List<bus::Function> functions;

    void (*closed_handler)(kex_t *bus, peer_t *peer, void *userdata);
    void *closed_userdata;

    int spare[bus::kSpareDescriptors];
    uint32_t spare_count;
    uint32_t table_room;       // free places in the process's table at the last look, less what has come since
    uint32_t table_looks_left; // reads until it is looked at again

    uint8_t *incoming; // kPacketsPerRead packets, so that none is read on the stack
    uint8_t *outgoing; // one packet or tap record, so that none is built there
};

namespace bus {} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// The bus context: what all files of the bus share.
#ifndef KEX_BUS_H
#define KEX_BUS_H

#include "base/clock.h"
#include "base/contract.h"
#include "base/limits.h"
#include "base/list.h"
#include "loop/source.h"
#include "loop/task.h"

#include <signal.h>
#include <sys/types.h>

namespace bus {

struct Link;
struct Listener;
struct Watch;
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

    int epoll_fd;
    int timer_fd;
    int stop_fd;
    int work_fd; // readable while work is left over
    bus::Source timer_source;
    bus::Source stop_source;
    bus::Source work_source;
    bool work_shown;
    volatile sig_atomic_t stopped;
    bool in_turn;
    bool ending;    // inside kex_destroy: nothing new begins
    uint64_t armed; // what the kernel's timer is set to; 0: nothing
    bus::Clock clock;

    bus::List<bus::Task> tasks;
    bus::List<bus::Link> links; // oldest first
    bus::List<bus::Listener> listeners;
    bus::List<bus::Watch> watches;
    bus::List<kex_timer_t> timers; // running ones, soonest first
    bus::List<kex_timer_t> idle_timers;
    uint32_t open_links;
    uint32_t taps;
    uint32_t always_ready; // watches of files that cannot be polled
    uint32_t last_number;  // of a connection
    bool output_waits;     // something was queued outside a turn
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

namespace bus {

// The bus that timers without a bus argument belong to; null: there is none.
kex_t *current_bus();
// The bus whose tasks run now; null: none.
void set_dispatching_bus(kex_t *bus);

} // namespace bus

#endif

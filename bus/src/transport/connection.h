// SPDX-License-Identifier: MIT
// One connection to another process: what is queued for it, what came from it, and how it ends.
#ifndef KEX_LINK_H
#define KEX_LINK_H

#include "bus/bus.h"
#include "value/message.h"

namespace bus {

enum class Role : uint8_t {
    client, // we connected
    server, // it connected to us
    tap,    // it connected to look
};

struct OutPacket : Node<OutPacket> {
    request_t *request; // whose call this is, while it can still become one-way
    int *fds;
    uint32_t fd_count;
    uint32_t size;
    uint8_t *data;
};

// Its task is the close event.
struct Link : Source, Task, Node<Link> {
    kex_t *bus;
    bool ready;    // something may be there to read
    peer_t *shell; // null until the other side has said hello to us who listen, and for taps
    Role role;
    bool greeted; // the other side has said hello
    bool closed;
    bool close_told; // the close event runs or has run
    bool mute;       // it cannot be written to any more; what it sent before can still be read
    uint32_t number;
    int32_t process_id;
    char name[kMaxProcessName + 1];
    char why[128]; // the reason it gave for refusing us
    uint32_t packet_limit;
    uint64_t hello_deadline;
    uint64_t retry_at;

    List<OutPacket> out;
    uint32_t out_bytes;
    uint32_t out_fds;

    uint8_t bite; // its next read takes up to 2 to the power of this many packets

    uint32_t last_serial;
    List<request_t> pending; // sent or queued, without an answer yet
    uint32_t in_calls;       // received, not dispatched
    uint32_t in_bytes;
    uint32_t in_fds;

    function_call_t *running; // a call of the peer whose function runs now
    request_t *awaited;       // kex_waitForReply runs for this one
    uint32_t awaited_by_it;   // serial of our answer that the other side says it waits for; 0: none
    uint32_t lost;            // taps: copies that found no room

    void *closed_userdata;
    int (*closed_handler)(peer_t *peer, int event, void *userdata);
};

// Takes over a connected socket, also on failure. Null: too many peers or no memory.
Link *link_create(kex_t *bus, int fd, Role role);
// Ends a connection: fails what waits on it and queues the close event behind what it had sent.
void link_close(Link *link, const char *why);
// Tells the other side why, writes one trace line and closes.
void link_refuse(Link *link, const char *why);
// The same for a socket that did not become a link.
void socket_refuse(kex_t *bus, int fd, const char *why);
// For messages: "'fxs_plugin' (process 12)".
const char *link_title(const Link *link, char *buffer, size_t size);
constexpr size_t kTitleSize = kMaxProcessName + 32;
// The link of a peer that is not closed, else null.
Link *open_link(peer_t *peer);
void links_begin(kex_t *bus);
peer_t *shell_create(kex_t *bus);
// Takes back the shell that was made last, before anybody has seen it.
void shell_discard(peer_t *shell);
void links_free(kex_t *bus);

// sending.cpp
// Queues what was written. Null: over a limit, broken, closed or no memory; then nothing of it is left.
OutPacket *link_queue(Link *link, wire::Writer &writer, uint32_t allowance);
void link_flush(Link *link);
void links_flush(kex_t *bus);
void link_drop_output(Link *link);
// Everything that is queued on all links, for at most this long.
void links_drain_output(kex_t *bus, uint64_t nanoseconds);

// receiving.cpp
// Reads what one system call brings, at most so many packets (a power of two up to kPacketsPerRead). False: nothing
// more is to be read now, or the link is closed.
bool link_receive(Link *link, uint32_t packets);
bool link_is_full(const Link *link);
void links_read(kex_t *bus, bool newcomers);
// By the bus's clock; 0: none.
uint64_t links_deadline(kex_t *bus);
void links_expire(kex_t *bus, uint64_t now);

} // namespace bus

#endif

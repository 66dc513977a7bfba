// SPDX-License-Identifier: MIT
// How a connection begins and ends.
#include "transport/connection.h"
#include "base/trace.h"
#include "calls/request.h"
#include "loop/loop.h"
#include "transport/socket.h"
#include "transport/tap.h"
#include "value/tap_record.h"

#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace bus;

namespace {

// The close event: the peer's own handler, then the host's one for all. It stands behind the last call the peer had
// sent.
void run_closed(Task *task) {
    Link *link = static_cast<Link *>(task);
    kex_t *bus = link->bus;
    peer_t *shell = link->shell;
    link->close_told = true;
    if (shell != nullptr) {
        if (link->closed_handler != nullptr)
            link->closed_handler(shell, PEER_EVENT_CLOSED, link->closed_userdata);
        if (bus->closed_handler != nullptr)
            bus->closed_handler(bus, shell, bus->closed_userdata);
        shell->link = nullptr;
    }
    bus->links.remove(link);
    free(link);
}

void link_ready(Source *source) {
    static_cast<Link *>(source)->ready = true;
}

void send_refusal(kex_t *bus, int fd, const char *why) {
    wire::Writer writer = wire::packet_begin(bus->outgoing, wire::kMaxTapRecord);
    wire::refusal_write(writer, why);
    send(fd, writer.data, writer.size, MSG_DONTWAIT | MSG_NOSIGNAL);
}

} // namespace

namespace bus {

const char *link_title(const Link *link, char *buffer, size_t size) {
    snprintf(buffer, size, "'%s' (process %d)", link->name, static_cast<int>(link->process_id));
    return buffer;
}

Link *open_link(peer_t *peer) {
    return peer != nullptr && peer->link != nullptr && !peer->link->closed ? peer->link : nullptr;
}

peer_t *shell_create(kex_t *bus) {
    peer_t *shell = make<peer_t>();
    if (shell == nullptr)
        return nullptr;
    shell->bus = bus;
    shell->next = bus->peers;
    bus->peers = shell;
    return shell;
}

void shell_discard(peer_t *shell) {
    shell->bus->peers = shell->next;
    free(shell);
}

Link *link_create(kex_t *bus, int fd, Role role) {
    Link *link = bus->open_links < kMaxPeers ? make<Link>() : nullptr;
    if (link == nullptr) {
        socket_refuse(bus, fd, "there are too many connections");
        return nullptr;
    }
    link->run = run_closed;
    link->bus = bus;
    link->fd = fd;
    link->role = role;
    link->packet_limit = socket_packet_limit(fd);
    link->process_id = socket_process_id(fd);
    link->number = ++bus->last_number;
    link->hello_deadline = role == Role::server ? clock_now(bus->loop.clock) + kHelloLimit : 0;
    if (!source_add(&bus->loop, link, fd, link_ready)) {
        close(fd);
        free(link);
        return nullptr;
    }
    bus->links.push(link);
    bus->open_links++;
    wire::Writer writer = wire::packet_begin(bus->outgoing, link->packet_limit);
    wire::hello_write(writer, bus->name);
    link_queue(link, writer, 1);
    // At once: whoever connects and then thinks for a while must not look like somebody who says nothing.
    link_flush(link);
    return link;
}

void link_close(Link *link, const char *why) {
    if (link->closed)
        return;
    link->closed = true;
    kex_t *bus = link->bus;
    bus->open_links--;
    if (link->role == Role::tap)
        bus->taps--;
    source_remove(&bus->loop, link);
    close(link->fd);
    link->fd = -1;
    link_drop_output(link);
    if (link->greeted && link->role != Role::tap) {
        char title[kTitleSize];
        note(ZIL_TRACE_NOTICE, "connection to %s closed: %s", link_title(link, title, sizeof title), why);
        tap_event(link, KEX_TAP_CLOSED, why);
    }
    while (link->pending.first != nullptr)
        request_fail(link->pending.first, KEX_ERROR_PEER_CLOSED, "Peer closed", why);
    task_push(&bus->loop, link);
}

void link_refuse(Link *link, const char *why) {
    char title[kTitleSize];
    note(ZIL_TRACE_ERROR, "connection to %s refused: %s", link_title(link, title, sizeof title), why);
    tap_event(link, KEX_TAP_REFUSED, why);
    send_refusal(link->bus, link->fd, why);
    link_close(link, why);
}

void socket_refuse(kex_t *bus, int fd, const char *why) {
    note(ZIL_TRACE_ERROR, "connection of process %d refused: %s", static_cast<int>(socket_process_id(fd)), why);
    send_refusal(bus, fd, why);
    close(fd);
}

void links_free(kex_t *bus) {
    while (bus->links.first != nullptr) {
        Link *link = bus->links.pop();
        bus->loop.tasks.remove(link);
        free(link);
    }
    while (bus->peers != nullptr) {
        peer_t *shell = bus->peers;
        bus->peers = shell->next;
        free(shell);
    }
}

} // namespace bus

// SPDX-License-Identifier: MIT
// Implements listener.h: who may connect.
#include "transport/listener.h"
#include "base/closer.h"
#include "base/faults.h"
#include "base/trace.h"
#include "transport/admission.h"
#include "transport/connection.h"
#include "transport/inherited.h"
#include "transport/path_socket.h"
#include "transport/succession.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace bus {

struct Listener : Source, Node<Listener> {
    Transport *transport;
    bool ready_to_accept;
    int lock_fd;         // -1: the socket was inherited, and is not ours to remove
    char path[PATH_MAX]; // of our own, wherever the process is when it ends; "": it is not known
};

namespace {

constexpr char kNoDescriptors[] = "this process has no more descriptors";

void listener_ready(Source *source) {
    static_cast<Listener *>(source)->ready_to_accept = true;
}

Listener *listener_create(Transport *transport, const PathSocket &opened, const char *path) {
    Listener *listener = make<Listener>();
    if (listener == nullptr)
        return nullptr;
    if (!source_add(transport->loop, listener, opened.fd, listener_ready)) {
        free(listener);
        return nullptr;
    }
    listener->transport = transport;
    listener->lock_fd = opened.lock_fd;
    if (opened.lock_fd >= 0 && realpath(path, listener->path) == nullptr)
        *listener->path = '\0';
    transport->listeners.push(listener);
    loop_wake(transport->loop);
    return listener;
}

// ----------------------------------------------------------------------------------------- Accepting

int socket_accept(const Listener *listener) {
    if (fault_is_due(Fault::accept))
        return -1;
    return accept4(listener->fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
}

void socket_take(Transport *transport, int fd) {
    if (spare_is_hosts(fd))
        socket_refuse(transport, fd, kNoDescriptors);
    else if (!socket_is_trusted(transport->access, fd, socket_credentials(fd)))
        socket_refuse(transport, fd, "its user may not connect");
    else if (const Connection *connection = connection_begin(transport, fd, Role::server))
        admission_note(transport, connection->process_id);
}

// With the table full the spare descriptors make room, so that whoever waits learns why it is refused.
bool listener_refuse_one(Listener *listener) {
    Transport *transport = listener->transport;
    spare_release(transport->spare);
    int fd = socket_accept(listener);
    if (fd >= 0)
        socket_refuse(transport, fd, kNoDescriptors);
    spare_fill(transport->spare);
    return fd >= 0;
}

// Nobody can be taken in or turned away now. Whoever waits is not looked at all the time.
void listener_pause(Listener *listener) {
    Transport *transport = listener->transport;
    source_set_interest(transport->loop, listener, false, false);
    transport->accept_at = clock_now(transport->loop->clock) + kHoldBack;
}

// Whoever waits to be taken in may have sent something already, which the last close of the listener would close here.
// Spare descriptors make room for them; an inherited socket's queue waits for the next one that inherits it.
void listener_drain(Listener *listener) {
    SpareDescriptors &spare = listener->transport->spare;
    shutdown(listener->fd, SHUT_RDWR); // nobody else connects
    spare_release(spare);
    for (int fd = socket_accept(listener); fd >= 0; fd = socket_accept(listener))
        connected_socket_close(fd);
    spare_fill(spare);
}

// Whoever leaves much behind in the queue of those who wait does not hold the rest up: there is a time for turning
// away, too. One at least is looked at, however late this process runs.
void listener_accept(Listener *listener) {
    const uint64_t end = clock_monotonic() + kTurnAccepting;
    do {
        if (closings_are_many() || admission_has_to_wait(listener->transport)) {
            listener_pause(listener);
            return;
        }
        const int fd = socket_accept(listener);
        if (fd >= 0) {
            socket_take(listener->transport, fd);
            continue;
        }
        const int error = errno;
        const bool full = error == EMFILE || error == ENFILE;
        if (error == EINTR || error == ECONNABORTED || (full && listener_refuse_one(listener)))
            continue;
        if (error != EAGAIN)
            listener_pause(listener);
        return;
    } while (clock_monotonic() < end);
}

} // namespace

Listener *listener_open(Transport *transport, const char *path) {
    sockaddr_un address;
    if (!address_from_path(path, strlen(path), &address)) {
        listen_failed(path, strerror(errno));
        return nullptr;
    }
    PathSocket opened = {socket_inherited(&address), -1};
    if (opened.fd < 0 && !path_socket_open(transport->access, &address, opened))
        return nullptr;
    Listener *listener = listener_create(transport, opened, path);
    if (listener != nullptr)
        return listener;
    if (opened.lock_fd >= 0)
        unlink(path);
    path_socket_close(opened);
    return nullptr;
}

void listener_close(Listener *listener) {
    Transport *transport = listener->transport;
    source_remove(transport->loop, listener);
    // Removed while the lock is still held: it cannot be a successor's.
    if (*listener->path != '\0')
        unlink(listener->path);
    if (listener->lock_fd >= 0)
        listener_drain(listener);
    path_socket_close({listener->fd, listener->lock_fd});
    transport->listeners.remove(listener);
    free(listener);
}

void listeners_accept(Transport *transport) {
    const uint64_t last_known = transport->last_number;
    if (transport->passing != 0 && !admission_has_to_wait(transport))
        listeners_resume(transport); // whoever waits is seen in the next turn
    for (Listener *listener : transport->listeners) {
        if (listener->ready_to_accept)
            listener_accept(listener);
        listener->ready_to_accept = false;
    }
    if (transport->last_number != last_known)
        newcomers_line_up(transport, last_known);
}

void listeners_resume(Transport *transport) {
    transport->accept_at = kNever;
    for (Listener *listener : transport->listeners)
        source_set_interest(transport->loop, listener, true, false);
}

void listeners_close(Transport *transport) {
    while (transport->listeners.first != nullptr)
        listener_close(transport->listeners.first);
}

} // namespace bus

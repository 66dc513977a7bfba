// SPDX-License-Identifier: MIT
// Implements peer.h.
#include "calls/peer.h"
#include "base/closer.h"
#include "base/limits.h"
#include "base/trace.h"
#include "calls/handle.h"
#include "transport/listener.h"
#include "transport/send.h"

#include <errno.h>
#include <poll.h>
#include <string.h>

using namespace bus;

namespace {

constexpr size_t kWelcomeBytes = 256; // the head decides

void peer_free(Peer *peer) {
    if (peer != nullptr)
        pending_end(peer->pending);
    free(peer);
}

// With its handle.
void peer_destroy(Peer *peer) {
    handle_destroy(peer->handle);
    peer_free(peer);
}

// With its handle.
Peer *peer_create(Calls *calls) {
    Peer *peer = make<Peer>();
    peer_t *handle = peer != nullptr ? handle_create(calls) : nullptr;
    if (handle == nullptr) {
        free(peer);
        return nullptr;
    }
    peer->calls = calls;
    peer->handle = handle;
    handle_find(handle)->peer = peer;
    return peer;
}

// Whoever listens there will be obeyed: it has to be somebody who might connect to us.
int uri_connect(const Access &access, const char *uri) {
    sockaddr_un address;
    int fd = address_from_uri(uri, &address) ? socket_connect(&address) : -1;
    if (fd < 0) {
        // That nobody is there the host says itself, again and again; any other reason it does not learn.
        const bool is_nobody = errno == ENOENT || errno == ECONNREFUSED;
        note(is_nobody ? ZIL_TRACE_NOTICE : ZIL_TRACE_WARNING, "cannot connect to '%s': %s", uri,
             errno == EINVAL ? "that is not of the form kex://ipc:[/path]" : strerror(errno));
        return -1;
    }
    const Credentials listener = socket_credentials(fd);
    if (socket_is_trusted(access, fd, listener))
        return fd;
    note(ZIL_TRACE_ERROR,
         "user %u listens at '%s', who is not trusted: set KEX_ALLOW_UIDS=%u for this process if that is right",
         listener.user_id, uri, listener.user_id);
    connected_socket_close(fd);
    return -1;
}

// Whether the first message of a listener is the hello that it should be. What has not come in time counts as one: the
// process may be busy.
bool listener_welcomes(int fd) {
    pollfd polled = {fd, POLLIN, 0};
    uint8_t packet[kWelcomeBytes];
    if (poll(&polled, 1, static_cast<int>(kWelcomeLimit / kMillisecond)) <= 0)
        return true;
    const ssize_t size = recv(fd, packet, sizeof packet, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
    wire::Message message;
    return size > 0 && wire::message_open(packet, static_cast<uint32_t>(size), message) == nullptr &&
           message.kind == wire::kHello;
}

// Whoever was refused and connects again at once would do so for ever, as fast as both can: a refusal that comes again
// is told here, where the host takes it for a listener that is not there and tries again later.
int listener_connect(const Calls *calls, const char *uri) {
    const int fd = uri_connect(calls->transport->access, uri);
    if (fd < 0 || !calls->unwelcome || listener_welcomes(fd))
        return fd;
    note(ZIL_TRACE_WARNING, "'%s' still refuses this process", uri);
    socket_give_up(calls->transport, fd);
    return -1;
}

Peer *handle_peer(const peer_t *handle) {
    const Handle *found = handle_find(handle);
    return found != nullptr ? found->peer : nullptr;
}

const Connection *handle_connection(const peer_t *handle) {
    const Peer *peer = handle_peer(handle);
    return peer != nullptr ? peer->connection : nullptr;
}

Listener *handle_listener(const peer_t *handle) {
    const Handle *found = handle_find(handle);
    return found != nullptr ? found->listener : nullptr;
}

} // namespace

namespace bus {

Peer *peer_for(Calls *calls, Connection *connection) {
    if (connection->peer != nullptr)
        return connection->peer;
    Peer *peer = peer_create(calls);
    if (peer != nullptr) {
        peer->connection = connection;
        connection->peer = peer;
    }
    return peer;
}

Peer *peer_open(peer_t *handle) {
    Peer *peer = handle_peer(handle);
    return peer != nullptr && !peer->connection->closed ? peer : nullptr;
}

peer_t *peer_connect(Calls *calls, const char *uri) {
    // A handler that runs while its bus ends may want to connect again: nobody would close that connection any more.
    int fd = !calls->transport->ending ? listener_connect(calls, uri) : -1;
    if (fd < 0)
        return nullptr;
    Peer *peer = peer_create(calls);
    if (peer == nullptr) {
        connected_socket_close(fd);
        return nullptr;
    }
    peer->connection = connection_begin(calls->transport, fd, Role::client);
    if (peer->connection == nullptr) {
        peer_destroy(peer);
        return nullptr;
    }
    peer->connection->peer = peer;
    return peer->handle;
}

peer_t *peer_listen(Calls *calls, const char *path) {
    peer_t *handle = !calls->transport->ending ? handle_create(calls) : nullptr;
    if (handle == nullptr)
        return nullptr;
    Listener *listener = listener_open(calls->transport, path);
    if (listener == nullptr) {
        handle_destroy(handle);
        return nullptr;
    }
    handle_find(handle)->listener = listener;
    return handle;
}

void peer_close_event(Peer *peer) {
    Calls *calls = peer->calls;
    peer_t *handle = peer->handle;
    const TraceCause cause(peer->connection->process_id);
    peer->close_told = true;
    if (peer->closed_handler != nullptr)
        peer->closed_handler(handle, PEER_EVENT_CLOSED, peer->closed_userdata);
    if (calls->closed_handler != nullptr)
        calls->closed_handler(calls->bus, handle, calls->closed_userdata);
    peer_destroy(peer);
}

void peers_end(Calls *calls) {
    for (peer_t *handle = handle_first(calls); handle != nullptr; handle = handle_first(calls)) {
        peer_free(handle_peer(handle));
        handle_destroy(handle);
    }
}

} // namespace bus

int peer_setEventHandler(peer_t *handle, int event, void *userdata,
                         int (*handler)(peer_t *peer, int event, void *userdata)) {
    if (handle_listener(handle) != nullptr && event == PEER_EVENT_CLOSED)
        return 1; // a listener closes with its bus, when no event runs any more
    // As long as the close event has not run, a handler can still be told: the end may already have been read while
    // calls that came before it wait for their turn.
    Peer *peer = handle_peer(handle);
    if (peer == nullptr || peer->close_told || event != PEER_EVENT_CLOSED)
        return 0;
    peer->closed_handler = handler;
    peer->closed_userdata = userdata;
    return 1;
}

const char *peer_processName(peer_t *handle) {
    const Connection *connection = handle_connection(handle);
    return connection != nullptr ? connection->name : "";
}

int32_t peer_processId(peer_t *handle) {
    const Connection *connection = handle_connection(handle);
    return connection != nullptr ? connection->process_id : 0;
}

int peer_disconnect(peer_t *handle) {
    Listener *listener = handle_listener(handle);
    if (listener != nullptr) {
        listener_close(listener);
        handle_destroy(handle);
        return 1;
    }
    Peer *peer = peer_open(handle);
    if (peer == nullptr)
        return 0;
    connection_flush(peer->connection);
    connection_close(peer->connection, "closed from this side");
    return 1;
}

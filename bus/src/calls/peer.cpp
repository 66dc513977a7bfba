// SPDX-License-Identifier: MIT
// Peers (kex.h, "Peers, timers, data model"; kex_host.h, "Peers").
#include "base/trace.h"
#include "transport/connection.h"
#include "transport/listener.h"
#include "transport/socket.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

using namespace bus;

peer_t *kex_client_connect(kex_t *bus, const char *uri) {
    // A handler that runs while its bus ends may want to connect again: nobody would close that connection any more.
    if (bus == nullptr || uri == nullptr || bus->ending)
        return nullptr;
    sockaddr_un address;
    int fd = address_from_uri(uri, &address) ? socket_connect(&address) : -1;
    if (fd < 0) {
        note(ZIL_TRACE_NOTICE, "cannot connect to '%s': %s", uri, strerror(errno));
        return nullptr;
    }
    peer_t *shell = shell_create(bus);
    if (shell == nullptr) {
        close(fd);
        return nullptr;
    }
    Link *link = link_create(bus, fd, Role::client);
    if (link == nullptr) {
        shell_discard(shell);
        return nullptr;
    }
    shell->link = link;
    link->shell = shell;
    return shell;
}

int peer_setEventHandler(peer_t *peer, int event, void *userdata,
                         int (*handler)(peer_t *peer, int event, void *userdata)) {
    if (peer != nullptr && peer->listener != nullptr && event == PEER_EVENT_CLOSED)
        return 1; // a listener closes with its bus, when no event runs any more
    // As long as the close event has not run, a handler can still be told: the end may already have been read while
    // calls that came before it wait for their turn.
    Link *link = peer != nullptr ? peer->link : nullptr;
    if (link == nullptr || link->close_told || event != PEER_EVENT_CLOSED)
        return 0;
    link->closed_handler = handler;
    link->closed_userdata = userdata;
    return 1;
}

void kex_onPeerClosed(kex_t *bus, void (*handler)(kex_t *bus, peer_t *peer, void *userdata), void *userdata) {
    if (bus == nullptr)
        return;
    bus->closed_handler = handler;
    bus->closed_userdata = userdata;
}

const char *peer_processName(peer_t *peer) {
    return peer != nullptr && peer->link != nullptr ? peer->link->name : "";
}

int32_t peer_processId(peer_t *peer) {
    return peer != nullptr && peer->link != nullptr ? peer->link->process_id : 0;
}

int peer_disconnect(peer_t *peer) {
    if (peer != nullptr && peer->listener != nullptr) {
        listener_close(peer->listener);
        return 1;
    }
    Link *link = open_link(peer);
    if (link == nullptr)
        return 0;
    link_flush(link);
    link_close(link, "closed from this side");
    return 1;
}

// SPDX-License-Identifier: MIT
// A listening socket that is there once, and gone with its host.
#include "control_socket.h"

#include "kex_host.h"
#include "local_socket.h"

#include <errno.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr uint32_t kAcceptAgain = 1000; // ms until a connection is tried again that no descriptor was left for

kex_t *on;
void (*take)(int client);
int listener = -1;
char listener_path[sizeof(sockaddr_un::sun_path)];
kex_timer_t *accept_timer; // runs while the listener is not watched

void accept_client(int fd, void *);

void accept_again(kex_timer_t *) {
    if (!kex_watch(on, listener, nullptr, accept_client))
        kex_timer_start(accept_timer, kAcceptAgain);
}

// Whoever waits at the socket would wake the loop again and again while nothing can be done for him.
void accept_later() {
    kex_unwatch(on, listener);
    if (accept_timer == nullptr)
        accept_timer = kex_timer_create();
    kex_timer_setHandler(accept_timer, accept_again);
    kex_timer_start(accept_timer, kAcceptAgain);
}

void accept_client(int fd, void *) {
    const int client = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC);
    if (client >= 0)
        take(client);
    else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
        accept_later();
}

bool listen_at(const char *path) {
    listener = local_socket_listen(path);
    if (listener < 0 || !kex_watch(on, listener, nullptr, accept_client))
        return false;
    snprintf(listener_path, sizeof listener_path, "%s", path);
    return true;
}

} // namespace

bool control_socket_open(kex_t *bus, const char *path, void (*connected)(int client)) {
    on = bus;
    take = connected;
    return listen_at(path);
}

void control_socket_close() {
    kex_timer_destroy(accept_timer);
    accept_timer = nullptr;
    if (listener >= 0) {
        kex_unwatch(on, listener);
        close(listener);
        listener = -1;
    }
    if (listener_path[0] != 0)
        unlink(listener_path);
    listener_path[0] = 0;
}

// SPDX-License-Identifier: MIT
// A listening socket that is there once, and gone with its host.
#include "control_socket.h"

#include "kex_host.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int kWaiting = 8;             // connections that wait to be taken
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

// A socket file that nobody listens on is left from a process that was killed: take it over. Anything else stays, also
// a socket of another kind and one whose listener is too busy to answer.
bool clear_path(const sockaddr_un *address) {
    struct stat status;
    if (lstat(address->sun_path, &status) != 0)
        return errno == ENOENT;
    if (!S_ISSOCK(status.st_mode)) {
        errno = EEXIST;
        return false;
    }
    int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0)
        return false;
    bool alive =
        connect(probe, reinterpret_cast<const sockaddr *>(address), sizeof *address) == 0 || errno != ECONNREFUSED;
    close(probe);
    if (alive) {
        errno = EADDRINUSE;
        return false;
    }
    return unlink(address->sun_path) == 0;
}

bool listen_at(const char *path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    memcpy(address.sun_path, path, strlen(path) + 1);
    if (!clear_path(&address))
        return false;
    listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    mode_t before = umask(0117); // the file must never be open to others, not even for a moment
    bool bound = listener >= 0 && bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    umask(before);
    if (!bound || listen(listener, kWaiting) != 0 || !kex_watch(on, listener, nullptr, accept_client))
        return false;
    memcpy(listener_path, address.sun_path, sizeof listener_path);
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

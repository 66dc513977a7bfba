// SPDX-License-Identifier: MIT
// Listening (kex.h, connection_listenOnIPC): who may listen at a path, and who may connect.
#include "transport/listener.h"
#include "base/trace.h"
#include "loop/loop.h"
#include "transport/connection.h"
#include "transport/socket.h"
#include "transport/spare.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace bus;

namespace {

constexpr int kBacklog = 64;
constexpr mode_t kSocketMode = 0660; // user and group; who of them may talk is decided at accept
constexpr int kFirstInherited = 3;

// Complains and answers -1.
int refuse(const char *path, const char *what) {
    note(ZIL_TRACE_ERROR, "cannot listen on '%s': %s", path, what);
    return -1;
}

// The lock says who owns the path, also between a crash and the next start. The file stays: removing it would let two
// processes lock two files of the same name.
int lock_beside(const char *path) {
    char lock_path[sizeof(sockaddr_un::sun_path) + 8];
    snprintf(lock_path, sizeof lock_path, "%s.lock", path);
    int fd = open(lock_path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kSocketMode);
    if (fd < 0) {
        char what[256];
        snprintf(what, sizeof what, "its lock file cannot be opened: %s", strerror(errno));
        return refuse(path, what);
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        close(fd);
        return refuse(path, "another process listens there already");
    }
    return fd;
}

// Removes what a dead listener left. False: the path is somebody else's.
bool make_way(const sockaddr_un *address) {
    struct stat status;
    if (lstat(address->sun_path, &status) != 0)
        return true;
    if (!S_ISSOCK(status.st_mode)) {
        refuse(address->sun_path, "something that is no socket stands there");
        return false;
    }
    // A listener that knows nothing of the lock is found by knocking. Only a refusal says that nobody is there.
    int fd = socket_connect(address);
    if (fd >= 0 || errno == EAGAIN || errno == EPROTOTYPE) {
        if (fd >= 0)
            close(fd);
        refuse(address->sun_path, "another process listens there already");
        return false;
    }
    if (errno != ECONNREFUSED) {
        refuse(address->sun_path, strerror(errno));
        return false;
    }
    unlink(address->sun_path);
    return true;
}

// The mode is on the socket before it has a name; the umask can only narrow it, which chmod then undoes before anybody
// can connect.
int open_at(const sockaddr_un *address) {
    int fd = socket_open();
    if (fd >= 0 && fchmod(fd, kSocketMode) == 0 &&
        bind(fd, reinterpret_cast<const sockaddr *>(address), sizeof *address) == 0 &&
        chmod(address->sun_path, kSocketMode) == 0 && listen(fd, kBacklog) == 0)
        return fd;
    int error = errno;
    if (fd >= 0)
        close(fd);
    return refuse(address->sun_path, strerror(error));
}

int number_from(const char *variable) {
    const char *value = getenv(variable);
    return value != nullptr ? atoi(value) : 0;
}

bool listens_at(int fd, const sockaddr_un *address) {
    int type = 0;
    int listens = 0;
    socklen_t length = sizeof type;
    if (getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length) != 0 || type != SOCK_SEQPACKET)
        return false;
    length = sizeof listens;
    if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listens, &length) != 0 || listens == 0)
        return false;
    sockaddr_un bound = {};
    length = sizeof bound;
    return getsockname(fd, reinterpret_cast<sockaddr *>(&bound), &length) == 0 && bound.sun_family == AF_UNIX &&
           strncmp(bound.sun_path, address->sun_path, sizeof bound.sun_path) == 0;
}

// A socket that a service manager has opened at this path for us (LISTEN_PID, LISTEN_FDS), or -1.
int inherited_at(const sockaddr_un *address) {
    if (number_from("LISTEN_PID") != getpid())
        return -1;
    int end = kFirstInherited + number_from("LISTEN_FDS");
    for (int fd = kFirstInherited; fd < end; fd++) {
        if (!listens_at(fd, address))
            continue;
        fcntl(fd, F_SETFD, FD_CLOEXEC);
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
        return fd;
    }
    return -1;
}

void listener_ready(Source *source) {
    static_cast<Listener *>(source)->ready = true;
}

Listener *create(kex_t *bus, int fd, int lock_fd, const char *path) {
    Listener *listener = make<Listener>();
    if (listener == nullptr)
        return nullptr;
    peer_t *shell = source_add(&bus->loop, listener, fd, listener_ready) ? shell_create(bus) : nullptr;
    if (shell == nullptr) {
        source_remove(&bus->loop, listener);
        free(listener);
        return nullptr;
    }
    listener->bus = bus;
    listener->shell = shell;
    listener->lock_fd = lock_fd;
    snprintf(listener->path, sizeof listener->path, "%s", path);
    shell->listener = listener;
    bus->listeners.push(listener);
    loop_wake(&bus->loop);
    return listener;
}

void take_in(kex_t *bus, int fd) {
    if (socket_may_connect(bus->environment, fd))
        link_create(bus, fd, Role::server);
    else
        socket_refuse(bus, fd, "its user may not connect");
}

// With the table full the spare descriptors make room, so that whoever waits learns why it is turned away.
bool turn_away(Listener *listener) {
    kex_t *bus = listener->bus;
    spare_release(bus);
    int fd = accept4(listener->fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd >= 0)
        socket_refuse(bus, fd, "this process has no more descriptors");
    spare_fill(bus);
    return fd >= 0;
}

void accept_all(Listener *listener) {
    for (int i = 0; i < kBacklog; i++) {
        int fd = accept4(listener->fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd >= 0) {
            take_in(listener->bus, fd);
            continue;
        }
        if (errno == EINTR || errno == ECONNABORTED)
            continue;
        if ((errno != EMFILE && errno != ENFILE) || !turn_away(listener))
            return;
    }
}

} // namespace

namespace bus {

bool listeners_ready(kex_t *bus) {
    bool any = false;
    for (Listener *listener = bus->listeners.first; listener != nullptr; listener = List<Listener>::after(listener))
        any |= listener->ready;
    return any;
}

void listeners_accept(kex_t *bus) {
    for (Listener *listener = bus->listeners.first; listener != nullptr; listener = List<Listener>::after(listener)) {
        if (listener->ready)
            accept_all(listener);
        listener->ready = false;
    }
}

void listener_close(Listener *listener) {
    kex_t *bus = listener->bus;
    source_remove(&bus->loop, listener);
    // Removed while the lock is still held: it cannot be a successor's.
    if (listener->path[0] != '\0')
        unlink(listener->path);
    close(listener->fd);
    if (listener->lock_fd >= 0)
        close(listener->lock_fd);
    listener->shell->listener = nullptr;
    bus->listeners.remove(listener);
    free(listener);
}

void listeners_free(kex_t *bus) {
    while (bus->listeners.first != nullptr)
        listener_close(bus->listeners.first);
}

} // namespace bus

peer_t *connection_listenOnIPC(connection_t *connection, const char *path) {
    if (connection == nullptr || path == nullptr || connection->bus->ending)
        return nullptr;
    sockaddr_un address;
    if (!address_from_path(path, strlen(path), &address)) {
        refuse(path, strerror(errno));
        return nullptr;
    }
    int lock_fd = -1;
    int fd = inherited_at(&address);
    bool inherited = fd >= 0;
    if (!inherited) {
        lock_fd = lock_beside(path);
        if (lock_fd >= 0 && make_way(&address))
            fd = open_at(&address);
    }
    Listener *listener = fd >= 0 ? create(connection->bus, fd, lock_fd, inherited ? "" : path) : nullptr;
    if (listener != nullptr)
        return listener->shell;
    if (fd >= 0)
        close(fd);
    if (lock_fd >= 0)
        close(lock_fd);
    return nullptr;
}

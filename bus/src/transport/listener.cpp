// SPDX-License-Identifier: MIT
// Implements listener.h: who may listen at a path, and who may connect.
#include "transport/listener.h"
#include "base/number.h"
#include "base/trace.h"
#include "transport/connection.h"
#include "transport/succession.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bus {

struct Listener : Source, Node<Listener> {
    Transport *transport;
    bool ready_to_accept;
    int lock_fd;    // -1: the socket was inherited
    char path[128]; // of our own socket; "": inherited, not ours to remove
};

namespace {

constexpr int kBacklog = 64;
constexpr mode_t kUserAndGroup = 0660;
constexpr mode_t kEverybody = 0666;
constexpr int kFirstInherited = 3;

// Writes a trace message and answers -1.
int listen_failed(const char *path, const char *what) {
    note(ZIL_TRACE_ERROR, "cannot listen on '%s': %s", path, what);
    return -1;
}

// The lock says who owns the path, also between a crash and the next start. The file stays: removing it would let two
// processes lock two files of the same name.
int lock_take(const char *path) {
    char lock_path[sizeof(sockaddr_un::sun_path) + 8];
    snprintf(lock_path, sizeof lock_path, "%s.lock", path);
    int fd = open(lock_path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kUserAndGroup);
    if (fd < 0) {
        char what[256];
        snprintf(what, sizeof what, "its lock file cannot be opened: %s", strerror(errno));
        return listen_failed(path, what);
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        close(fd);
        return listen_failed(path, "another process listens there already");
    }
    return fd;
}

// Removes what a dead listener left. False: the path is somebody else's.
bool path_clear(const sockaddr_un *address) {
    struct stat status;
    if (lstat(address->sun_path, &status) != 0)
        return true;
    if (!S_ISSOCK(status.st_mode)) {
        listen_failed(address->sun_path, "something that is no socket stands there");
        return false;
    }
    // A listener that knows nothing of the lock is found by connecting to it. Only "connection refused" says that nobody is there.
    int fd = socket_connect(address);
    if (fd >= 0 || errno == EAGAIN || errno == EPROTOTYPE) {
        if (fd >= 0)
            close(fd);
        listen_failed(address->sun_path, "another process listens there already");
        return false;
    }
    if (errno != ECONNREFUSED) {
        listen_failed(address->sun_path, strerror(errno));
        return false;
    }
    unlink(address->sun_path);
    return true;
}

// Who may talk is decided at accept. The mode lets as many get there as may be let in: an allow-list that names others would
// be in vain without it.
mode_t socket_mode(const Access &access) {
    for (uint32_t i = 0; i < access.uid_count; i++) {
        if (access.uids[i] != 0 && access.uids[i] != geteuid())
            return kEverybody;
    }
    for (uint32_t i = 0; i < access.gid_count; i++) {
        if (access.gids[i] != getegid())
            return kEverybody;
    }
    return kUserAndGroup;
}

// The mode is on the socket before it has a name; the umask can only narrow it, which chmod then undoes before anybody
// can connect.
int socket_listen(const sockaddr_un *address, mode_t mode) {
    int fd = socket_open();
    if (fd >= 0 && fchmod(fd, mode) == 0 &&
        bind(fd, reinterpret_cast<const sockaddr *>(address), sizeof *address) == 0 &&
        chmod(address->sun_path, mode) == 0 && listen(fd, kBacklog) == 0)
        return fd;
    int error = errno;
    if (fd >= 0)
        close(fd);
    return listen_failed(address->sun_path, strerror(error));
}

// False: there is no such variable, or it is no number.
bool variable_number(const char *variable, uint32_t *number) {
    const char *text = getenv(variable);
    const char *end;
    return text != nullptr && number_read(text, &end, number) && *end == '\0';
}

// How many sockets a service manager has opened for this process; 0 as well when it says so in a way that cannot be.
uint32_t sockets_inherited() {
    uint32_t process;
    uint32_t count;
    rlimit limit;
    if (!variable_number("LISTEN_PID", &process) || process != static_cast<uint32_t>(getpid()))
        return 0;
    if (variable_number("LISTEN_FDS", &count) && getrlimit(RLIMIT_NOFILE, &limit) == 0 && count <= limit.rlim_cur)
        return count;
    note(ZIL_TRACE_ERROR, "LISTEN_FDS is not a number of descriptors that this process can have: none is inherited");
    return 0;
}

bool socket_listens_at(int fd, const sockaddr_un *address) {
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
int socket_inherited(const sockaddr_un *address) {
    const uint32_t count = sockets_inherited();
    for (uint32_t i = 0; i < count; i++) {
        const int fd = kFirstInherited + static_cast<int>(i);
        if (fcntl(fd, F_GETFD) < 0)
            return -1; // they stand one behind the other
        if (!socket_listens_at(fd, address))
            continue;
        fcntl(fd, F_SETFD, FD_CLOEXEC);
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
        return fd;
    }
    return -1;
}

void listener_ready(Source *source) {
    static_cast<Listener *>(source)->ready_to_accept = true;
}

Listener *listener_create(Transport *transport, int fd, int lock_fd, const char *path) {
    Listener *listener = make<Listener>();
    if (listener == nullptr)
        return nullptr;
    if (!source_add(transport->loop, listener, fd, listener_ready)) {
        free(listener);
        return nullptr;
    }
    listener->transport = transport;
    listener->lock_fd = lock_fd;
    snprintf(listener->path, sizeof listener->path, "%s", path);
    transport->listeners.push(listener);
    loop_wake(transport->loop);
    return listener;
}

// ----------------------------------------------------------------------------------------- Accepting

int socket_accept(const Listener *listener) {
    return accept4(listener->fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
}

void socket_take(Transport *transport, int fd) {
    if (socket_is_trusted(transport->access, fd, socket_credentials(fd)))
        connection_begin(transport, fd, Role::server);
    else
        socket_refuse(transport, fd, "its user may not connect");
}

// With the table full the spare descriptors make room, so that whoever waits learns why it is refused.
bool listener_refuse_one(Listener *listener) {
    Transport *transport = listener->transport;
    spare_release(transport->spare);
    int fd = socket_accept(listener);
    if (fd >= 0)
        socket_refuse(transport, fd, "this process has no more descriptors");
    spare_fill(transport->spare);
    return fd >= 0;
}

void listener_accept(Listener *listener) {
    for (int i = 0; i < kBacklog; i++) {
        int fd = socket_accept(listener);
        if (fd >= 0) {
            socket_take(listener->transport, fd);
            continue;
        }
        if (errno == EINTR || errno == ECONNABORTED)
            continue;
        if ((errno != EMFILE && errno != ENFILE) || !listener_refuse_one(listener))
            return;
    }
}

} // namespace

Listener *listener_open(Transport *transport, const char *path) {
    sockaddr_un address;
    if (!address_from_path(path, strlen(path), &address)) {
        listen_failed(path, strerror(errno));
        return nullptr;
    }
    int lock_fd = -1;
    int fd = socket_inherited(&address);
    bool inherited = fd >= 0;
    if (!inherited) {
        lock_fd = lock_take(path);
        if (lock_fd >= 0 && path_clear(&address))
            fd = socket_listen(&address, socket_mode(transport->access));
    }
    Listener *listener = fd >= 0 ? listener_create(transport, fd, lock_fd, inherited ? "" : path) : nullptr;
    if (listener != nullptr)
        return listener;
    if (fd >= 0)
        close(fd);
    if (lock_fd >= 0)
        close(lock_fd);
    return nullptr;
}

void listener_close(Listener *listener) {
    Transport *transport = listener->transport;
    source_remove(transport->loop, listener);
    // Removed while the lock is still held: it cannot be a successor's.
    if (listener->path[0] != '\0')
        unlink(listener->path);
    close(listener->fd);
    if (listener->lock_fd >= 0)
        close(listener->lock_fd);
    transport->listeners.remove(listener);
    free(listener);
}

void listeners_accept(Transport *transport) {
    const uint32_t last_known = transport->last_number;
    for (Listener *listener : transport->listeners) {
        if (listener->ready_to_accept)
            listener_accept(listener);
        listener->ready_to_accept = false;
    }
    if (transport->last_number != last_known)
        newcomers_line_up(transport, last_known);
}

void listeners_close(Transport *transport) {
    while (transport->listeners.first != nullptr)
        listener_close(transport->listeners.first);
}

} // namespace bus

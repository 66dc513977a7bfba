// SPDX-License-Identifier: MIT
// Implements listener.h: who may listen at a path, and who may connect.
#include "transport/listener.h"
#include "base/closer.h"
#include "base/faults.h"
#include "base/trace.h"
#include "transport/connection.h"
#include "transport/inherited.h"
#include "transport/succession.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
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
constexpr mode_t kModeBits = 0777;
constexpr char kNoDescriptors[] = "this process has no more descriptors";

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
    int fd = fault_is_due(Fault::open) ? -1 : open(lock_path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kUserAndGroup);
    if (fd < 0) {
        char what[256];
        snprintf(what, sizeof what, "its lock file cannot be opened: %s", strerror(errno));
        return listen_failed(path, what);
    }
    if (fault_is_due(Fault::lock) || flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        close(fd);
        return listen_failed(path, error == EWOULDBLOCK ? "another process listens there already" : strerror(error));
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
            connected_socket_close(fd);
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

// Sets the mode of the socket that stands at a path, and of nothing else: whoever may write to its folder may have put a file
// of ours there, or a link to one. False with errno, ESTALE for such a one.
bool path_set_mode(const char *path, mode_t mode) {
    const int place = open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC);
    if (place < 0)
        return false;
    struct stat status;
    const bool is_socket = fstat(place, &status) == 0 && S_ISSOCK(status.st_mode);
    char name[32]; // chmod takes no descriptor that only stands for a place
    snprintf(name, sizeof name, "/proc/self/fd/%d", place);
    const bool done = is_socket && ((status.st_mode & kModeBits) == mode || chmod(name, mode) == 0);
    const int error = is_socket ? errno : ESTALE;
    close(place);
    errno = error;
    return done;
}

// The mode is on the socket before it has a name; the umask can only narrow it, which is undone before anybody can connect.
int socket_listen(const sockaddr_un *address, mode_t mode) {
    int fd = socket_open();
    if (fd >= 0 && fchmod(fd, mode) == 0 && !fault_is_due(Fault::bind) &&
        bind(fd, reinterpret_cast<const sockaddr *>(address), sizeof *address) == 0 &&
        path_set_mode(address->sun_path, mode) && !fault_is_due(Fault::listen) && listen(fd, kBacklog) == 0)
        return fd;
    int error = errno;
    if (fd >= 0)
        close(fd);
    return listen_failed(address->sun_path, error == ESTALE ? "its socket has been replaced" : strerror(error));
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
    if (fault_is_due(Fault::accept))
        return -1;
    return accept4(listener->fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
}

void socket_take(Transport *transport, int fd) {
    if (spare_is_hosts(fd))
        socket_refuse(transport, fd, kNoDescriptors);
    else if (socket_is_trusted(transport->access, fd, socket_credentials(fd)))
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

// Whoever waits to be taken in may have sent something already, which the last close of the listener would close here. Spare
// descriptors make room for them; an inherited socket's queue waits for the next one that inherits it.
void listener_drain(Listener *listener) {
    SpareDescriptors &spare = listener->transport->spare;
    shutdown(listener->fd, SHUT_RDWR); // nobody else connects
    spare_release(spare);
    for (int fd = socket_accept(listener); fd >= 0; fd = socket_accept(listener))
        connected_socket_close(fd);
    spare_fill(spare);
}

void listener_accept(Listener *listener) {
    if (closings_pending() >= kMaxClosings) {
        listener_pause(listener);
        return;
    }
    for (int i = 0; i < kBacklog; i++) {
        const int fd = socket_accept(listener);
        if (fd >= 0) {
            socket_take(listener->transport, fd);
            continue;
        }
        if (errno == EINTR || errno == ECONNABORTED)
            continue;
        const bool full = errno == EMFILE || errno == ENFILE;
        if (full && listener_refuse_one(listener))
            continue;
        if (full)
            listener_pause(listener);
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
    if (listener->path[0] != '\0') {
        unlink(listener->path);
        listener_drain(listener);
    }
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

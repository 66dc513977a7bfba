// SPDX-License-Identifier: MIT
// Implements path_socket.h: who may listen at a path.
#include "transport/path_socket.h"
#include "base/closer.h"
#include "base/faults.h"
#include "base/trace.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bus {

namespace {

constexpr mode_t kUserAndGroup = 0660;
constexpr mode_t kEverybody = 0666;
constexpr mode_t kModeBits = 0777;

// The lock says who owns the path, also between a crash and the next start. The file stays: removing it would let two
// processes lock two files of the same name.
int lock_take(const char *path) {
    char lock_path[sizeof(sockaddr_un::sun_path) + 8];
    snprintf(lock_path, sizeof lock_path, "%s.lock", path);
    int fd = fault_is_due(Fault::open) ? -1 : open(lock_path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kUserAndGroup);
    if (fd < 0) {
        char what[256];
        snprintf(what, sizeof what, "its lock file cannot be opened: %s", strerror(errno));
        listen_failed(path, what);
        return -1;
    }
    if (fault_is_due(Fault::lock) || flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        close(fd);
        listen_failed(path, error == EWOULDBLOCK ? "another process listens there already" : strerror(error));
        return -1;
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
    // A listener that knows nothing of the lock is found by connecting to it. Only "connection refused" says that
    // nobody is there.
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

// Who may talk is decided at accept. The mode lets as many get there as may be let in: an allow-list that names others
// would be in vain without it.
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

// Sets the mode of the socket that stands at a path, and of nothing else: whoever may write to its folder may have put
// a file of ours there, or a link to one. False with errno, ESTALE for such a one.
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

// The mode is on the socket before it has a name; the umask can only narrow it, which is undone before anybody can
// connect.
int socket_listen(const sockaddr_un *address, mode_t mode) {
    int fd = socket_open();
    if (fd >= 0 && fchmod(fd, mode) == 0 && !fault_is_due(Fault::bind) &&
        bind(fd, reinterpret_cast<const sockaddr *>(address), sizeof *address) == 0 &&
        path_set_mode(address->sun_path, mode) && !fault_is_due(Fault::listen) && listen(fd, kBacklog) == 0)
        return fd;
    int error = errno;
    if (fd >= 0)
        close(fd);
    listen_failed(address->sun_path, error == ESTALE ? "its socket has been replaced" : strerror(error));
    return -1;
}

} // namespace

void listen_failed(const char *path, const char *what) {
    note(ZIL_TRACE_ERROR, "cannot listen on '%s': %s", path, what);
}

bool path_socket_open(const Access &access, const sockaddr_un *address, PathSocket &opened) {
    opened = {-1, lock_take(address->sun_path)};
    if (opened.lock_fd >= 0 && path_clear(address))
        opened.fd = socket_listen(address, socket_mode(access));
    if (opened.fd >= 0)
        return true;
    path_socket_close(opened);
    return false;
}

void path_socket_close(const PathSocket &opened) {
    if (opened.fd >= 0)
        close(opened.fd);
    if (opened.lock_fd >= 0)
        close(opened.lock_fd);
}

} // namespace bus

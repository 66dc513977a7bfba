// SPDX-License-Identifier: MIT
// A listening local socket.
#include "local_socket.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int kWaiting = 8; // connections that wait to be taken

// A socket file that nobody listens on is left from a process that was killed: take it over. Anything else stays, also
// a socket of another kind and one whose listener is too busy to answer.
bool path_clear(const sockaddr_un *address) {
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

} // namespace

int local_socket_listen(const char *path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(address.sun_path, path, strlen(path) + 1);
    if (!path_clear(&address))
        return -1;
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const mode_t before = umask(0117); // the file must never be open to others, not even for a moment
    const bool bound =
        listener >= 0 && bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    umask(before);
    if (bound && listen(listener, kWaiting) == 0)
        return listener;
    const int error = errno;
    if (listener >= 0)
        close(listener);
    errno = error;
    return -1;
}

// SPDX-License-Identifier: MIT
// Implements descriptor_kind.h.
#include "base/descriptor_kind.h"

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#ifndef STATX_TYPE // musl before 1.2.5
#include <linux/stat.h>
#endif

namespace bus {

namespace {

constexpr unsigned kMemoryDevices = 1; // /dev/null and its relatives
constexpr unsigned kOptionMemory = 6;  // SK_MEMINFO_OPTMEM of <linux/sock_diag.h>
constexpr unsigned kMemoryFigures = 9;

bool option_get(int fd, int option, int &value) {
    socklen_t length = sizeof value;
    return getsockopt(fd, SOL_SOCKET, option, &value, &length) == 0;
}

// A member of groups leaves them with its last close, one after the other: 20 of IPv4 take milliseconds, and there may be
// thousands of IPv6. They are all that a socket for media could have set. Kernels before 4.12 do not tell; neither do
// emulators.
bool socket_has_settings(int fd, int domain) {
    uint32_t figures[kMemoryFigures] = {};
    socklen_t length = sizeof figures;
    if (getsockopt(fd, SOL_SOCKET, SO_MEMINFO, figures, &length) != 0 || length <= kOptionMemory * sizeof *figures)
        return domain == AF_INET6;
    return figures[kOptionMemory] != 0;
}

enum class Closes : uint8_t { at_once, perhaps_late, ask_otherwise };

Closes closes(bool at_once) {
    return at_once ? Closes::at_once : Closes::perhaps_late;
}

// Without a connection, which would have something to lose.
bool socket_is_datagram(int fd, int domain) {
    int type = 0;
    return (domain == AF_INET || domain == AF_INET6) && option_get(fd, SO_TYPE, type) && type == SOCK_DGRAM;
}

// Whoever is no socket is to be asked as a file.
Closes socket_look(int fd) {
    int domain = 0;
    if (!option_get(fd, SO_DOMAIN, domain))
        return Closes::ask_otherwise;
    return closes(socket_is_datagram(fd, domain) && !socket_has_settings(fd, domain));
}

// Asks no file system: that could take as long as the close. Of all that is no socket only the null device and its
// relatives close at once. A file waits for its disk, or for all of its file system to go with it; a pipe for whoever fills
// the other end from where nothing comes (splice(2)).
Closes file_look(int fd) {
    struct statx status = {};
    if (syscall(SYS_statx, fd, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_TYPE, &status) != 0)
        return closes(errno == EBADF);
    if (S_ISSOCK(status.stx_mode))
        return Closes::ask_otherwise;
    return closes(S_ISCHR(status.stx_mode) && status.stx_rdev_major == kMemoryDevices);
}

} // namespace

bool descriptor_may_linger(int fd) {
    int domain = 0;
    return option_get(fd, SO_DOMAIN, domain) && !socket_is_datagram(fd, domain);
}

// What comes together is mostly of one kind: asked first as the last one was, each costs a system call less.
bool descriptor_closes_at_once(int fd) {
    static bool last_was_file;
    Closes answer = last_was_file ? file_look(fd) : socket_look(fd);
    if (answer == Closes::ask_otherwise) {
        last_was_file = !last_was_file;
        answer = last_was_file ? file_look(fd) : socket_look(fd);
    }
    return answer == Closes::at_once;
}

} // namespace bus

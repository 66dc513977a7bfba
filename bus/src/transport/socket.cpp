// SPDX-License-Identifier: MIT
// Implements socket.h.
#include "transport/socket.h"
#include "base/faults.h"
#include "base/limits.h"

#include <errno.h>
#include <fcntl.h>
#include <initializer_list>
#include <string.h>
#include <sys/time.h>
#include <unistd.h>

namespace bus {

namespace {

constexpr char kScheme[] = "kex://ipc:[";
constexpr int kBuffer = 256 * 1024;
constexpr uint32_t kKernelShare = 256; // of a buffer, that the kernel keeps for itself
constexpr uint32_t kMaxGroups = 64;

uint32_t buffer_size(int fd, int option) {
    int size = kBuffer;
    socklen_t length = sizeof size;
    setsockopt(fd, SOL_SOCKET, option, &size, sizeof size);
    if (getsockopt(fd, SOL_SOCKET, option, &size, &length) != 0 || size <= 0)
        return 0;
    return static_cast<uint32_t>(size);
}

bool ids_contain(const uint32_t *ids, uint32_t count, uint32_t id) {
    for (uint32_t i = 0; i < count; i++) {
        if (ids[i] == id)
            return true;
    }
    return false;
}

bool is_in_allowed_group(const Access &access, int fd, gid_t group) {
    if (ids_contain(access.gids, access.gid_count, group))
        return true;
#ifdef SO_PEERGROUPS
    gid_t groups[kMaxGroups];
    socklen_t length = sizeof groups;
    if (access.gid_count == 0 || getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups, &length) != 0)
        return false;
    for (uint32_t i = 0; i < length / sizeof groups[0]; i++) {
        if (ids_contain(access.gids, access.gid_count, groups[i]))
            return true;
    }
#endif
    return false;
}

} // namespace

bool address_from_path(const char *path, size_t length, sockaddr_un *address) {
    *address = {};
    address->sun_family = AF_UNIX;
    if (length == 0 || length >= sizeof address->sun_path) {
        errno = length >= sizeof address->sun_path ? ENAMETOOLONG : EINVAL;
        return false;
    }
    memcpy(address->sun_path, path, length);
    return true;
}

bool address_from_uri(const char *uri, sockaddr_un *address) {
    size_t length = strlen(uri);
    constexpr size_t kPrefix = sizeof kScheme - 1;
    if (length <= kPrefix + 1 || memcmp(uri, kScheme, kPrefix) != 0 || uri[length - 1] != ']') {
        errno = EINVAL;
        return false;
    }
    return address_from_path(uri + kPrefix, length - kPrefix - 1, address);
}

int socket_open() {
    if (fault_is_due(Fault::socket))
        return -1;
    return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

int socket_connect(const sockaddr_un *address) {
    int fd = socket_open();
    if (fd < 0)
        return -1;
    if (!fault_is_due(Fault::connect) && connect(fd, reinterpret_cast<const sockaddr *>(address), sizeof *address) == 0)
        return fd;
    int error = errno;
    close(fd);
    errno = error;
    return -1;
}

uint32_t socket_packet_limit(int fd) {
    uint32_t limit = kMaxPacket;
    for (int option : {SO_SNDBUF, SO_RCVBUF}) {
        uint32_t size = buffer_size(fd, option);
        uint32_t usable = size > kKernelShare ? size - kKernelShare : 0;
        limit = usable < limit ? usable : limit;
    }
    return limit;
}

bool socket_sleep_in_receive(int fd) {
    timeval limit = {};
    limit.tv_usec = static_cast<decltype(limit.tv_usec)>(kSleepInReceive / kMicrosecond);
    if (setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0)
        return false;
    const int flags = fcntl(fd, F_GETFL);
    return flags >= 0 && fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

Credentials socket_credentials(int fd) {
    ucred credentials = {};
    socklen_t length = sizeof credentials;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0)
        return {0, UINT32_MAX, UINT32_MAX}; // is no user
    return {credentials.pid, credentials.uid, credentials.gid};
}

bool socket_is_trusted(const Access &access, int fd, const Credentials &credentials) {
    const uint32_t user = credentials.user_id;
    return user != UINT32_MAX && (user == 0 || user == geteuid() || ids_contain(access.uids, access.uid_count, user) ||
                                  is_in_allowed_group(access, fd, credentials.group_id));
}

} // namespace bus

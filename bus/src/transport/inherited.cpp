// SPDX-License-Identifier: MIT
// Implements inherited.h.
#include "transport/inherited.h"
#include "base/number.h"
#include "base/trace.h"

#include <fcntl.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

namespace bus {

namespace {

constexpr int kFirstInherited = 3;

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

} // namespace

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

} // namespace bus

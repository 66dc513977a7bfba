// SPDX-License-Identifier: MIT
// Local sockets: addresses, buffers and credentials. The reading side of a tap uses them too: this file knows nothing
// of connections.
#ifndef KEX_SOCKET_H
#define KEX_SOCKET_H

#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace bus {

// Who may connect besides our own user and root.
struct Access {
    static constexpr uint32_t kMaxIds = 32;
    uint32_t uids[kMaxIds];
    uint32_t uid_count;
    uint32_t gids[kMaxIds];
    uint32_t gid_count;
};

// "kex://ipc:[/path]" or, for listeners, a plain path. False: malformed, empty or too long for a socket address.
bool address_from_uri(const char *uri, sockaddr_un *address);
bool address_from_path(const char *path, size_t length, sockaddr_un *address);

// A local packet socket, close-on-exec, not blocking. -1 with errno.
int socket_open();
// Connects to a listener without waiting for it. -1 with errno.
int socket_connect(const sockaddr_un *address);
// Asks for room for the largest packet and tells what the kernel grants.
uint32_t socket_packet_limit(int fd);
// From now on a receive without MSG_DONTWAIT sleeps until something comes, or for kSleepInReceive. False: it does not.
bool socket_sleep_in_receive(int fd);
// Whom the kernel vouches for: who connected, or on the connecting side who listens. Zero as process: nobody, or one of
// another namespace.
struct Credentials {
    int32_t process_id;
    uint32_t user_id;
    uint32_t group_id;
};
Credentials socket_credentials(int fd);
// Our own user, root, and whom the lists allow.
bool socket_is_trusted(const Access &access, int fd, const Credentials &credentials);

} // namespace bus

#endif

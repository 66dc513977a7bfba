// SPDX-License-Identifier: MIT
// What the bus needs of local sockets.
#ifndef KEX_SOCKET_H
#define KEX_SOCKET_H

#include "bus/bus.h"

#include <sys/socket.h>
#include <sys/un.h>

namespace bus {

// "kex://ipc:[/path]" or, for listeners, a plain path. False: malformed, empty or too long for a socket address.
bool address_from_uri(const char *uri, sockaddr_un *address);
bool address_from_path(const char *path, size_t length, sockaddr_un *address);

// A local packet socket, close-on-exec, not blocking. -1 with errno.
int socket_open();
// Connects to a listener without waiting for it. -1 with errno.
int socket_connect(const sockaddr_un *address);
// Asks for room for the largest packet and tells what the kernel grants.
uint32_t socket_packet_limit(int fd);
// Whom the kernel vouches for; 0: nobody.
int32_t socket_process_id(int fd);
// Own user, root, or allowed by the environment.
bool socket_may_connect(const Environment &environment, int fd);

} // namespace bus

#endif

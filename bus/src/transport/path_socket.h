// SPDX-License-Identifier: MIT
// A socket of our own to listen with, at a path that nobody else holds.
#ifndef KEX_PATH_SOCKET_H
#define KEX_PATH_SOCKET_H

#include "transport/socket.h"

namespace bus {

constexpr int kBacklog = 128; // of those who have connected and wait to be taken in

struct PathSocket {
    int fd;
    int lock_fd; // -1: it has none
};

// Writes a trace message.
void listen_failed(const char *path, const char *what);
// Takes the lock, removes what a dead listener left, and listens. False: the path is somebody else's (traced).
bool path_socket_open(const Access &access, const sockaddr_un *address, PathSocket &opened);
// Gives the lock back. What stands at the path stays.
void path_socket_close(const PathSocket &opened);

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// Sockets that a service manager has opened for this process (LISTEN_PID, LISTEN_FDS).
#ifndef KEX_INHERITED_H
#define KEX_INHERITED_H

#include "transport/socket.h"

namespace bus {

// The one that listens at this address, close-on-exec and not blocking from now on, or -1.
int socket_inherited(const sockaddr_un *address);

} // namespace bus

#endif

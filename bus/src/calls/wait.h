// SPDX-License-Identifier: MIT
// Waits for a reply, made visible on both sides (kex.h, kex_waitForReply).
#ifndef KEX_WAIT_H
#define KEX_WAIT_H

#include "calls/peer.h"

struct timeval;

namespace bus {

// Reads the request's peer and runs nothing until the reply is there. Null as timeout: no limit. False: no reply.
bool request_wait(Calls *calls, request_t *r, const timeval *timeout);
// The peer says that it waits for our reply to its call of this serial.
void wait_announced(Peer *peer, uint32_t serial);

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// Calls that arrive.
#ifndef KEX_CALL_H
#define KEX_CALL_H

#include "transport/connection.h"

namespace bus {

// Queues a call that is well formed. False: no memory; the descriptors are still the caller's.
bool call_arrived(Link *link, const wire::Message &message, wire::Descriptors &descriptors);
// Whether a call of the peer stands in the queue or runs now.
bool call_is_queued(const Link *link, uint32_t serial);
// For messages: "'signal' of 'P.EndPoint.1'", or "a call" when it is not here.
const char *call_title(const Link *link, uint32_t serial, char *buffer, size_t size);

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// The requests of a peer that wait for its answer, found by their serial in constant time: the peer decides which
// replies come, and how many that nobody asked for.
#ifndef KEX_PENDING_H
#define KEX_PENDING_H

#include "base/contract.h"
#include "base/list.h"

namespace bus {

// Zero-filled, it is empty. A request stands at the place that the low bits of its serial name; the other bits tell it
// from those that stood there before.
struct Pending {
    List<request_t> requests; // oldest first
    request_t **places;
    uint32_t place_count; // a power of two, at least twice as many as there are requests
    uint32_t last_serial;
};

// Makes room for one more and gives it its serial, which is never 0. A sentence when there are too many or no memory,
// else null.
const char *pending_reserve(Pending &pending, uint32_t &serial);
// The request has a serial that was reserved for it.
void pending_add(Pending &pending, request_t *r);
void pending_remove(Pending &pending, request_t *r);
// Null: no request waits for the answer of this serial.
request_t *pending_find(const Pending &pending, uint32_t serial);
// Releases the places; the requests have been taken out.
void pending_end(Pending &pending);

} // namespace bus

#endif

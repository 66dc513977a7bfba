// SPDX-License-Identifier: MIT
// The packets that are queued for a connection.
#ifndef KEX_OUTPUT_H
#define KEX_OUTPUT_H

#include "transport/connection.h"

namespace bus {

// One message that stands in the queues of several connections.
struct SharedPacket {
    uint32_t users; // queues that it stands in, and whoever made it
    uint32_t size;
    uint8_t *data;
};

struct OutPacket : Node<OutPacket> {
    request_t *request;   // whose call this is, while it can still become one-way
    SharedPacket *shared; // what `data` belongs to; null: it stands behind this structure
    int *fds;
    uint32_t fd_count;
    uint32_t size;
    uint32_t footprint; // what counts against the limit of the peer
    uint8_t *data;
};

// An empty packet for this connection, in memory that the next one takes again.
wire::Writer output_begin(Connection *connection);
// Queues what was written. Null: over a limit, broken, closed or no memory; then nothing of it is left. With an
// allowance the limits are so many times as high.
OutPacket *output_add(Connection *connection, wire::Writer &writer, uint32_t allowance);
// A message for several connections: its maker is its first user. Null: broken, or no memory.
SharedPacket *shared_packet_create(const wire::Writer &writer);
void shared_packet_release(SharedPacket *shared);
// Whether one of so many bytes finds room in the connection's queue, so that it need not be made in vain.
bool output_takes(const Connection *connection, uint32_t size);
// Null: no memory. It counts whole in each queue.
OutPacket *output_add_shared(Connection *connection, SharedPacket *shared);
// Takes the first packet out of the queue; the layer above is told that its request has left.
OutPacket *output_take(Connection *connection);
void output_free(OutPacket *packet);
// Takes out and frees all that is queued.
void output_clear(Connection *connection);

} // namespace bus

#endif

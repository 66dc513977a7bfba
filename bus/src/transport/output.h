// SPDX-License-Identifier: MIT
// The messages that are queued for a connection.
#ifndef KEX_OUTPUT_H
#define KEX_OUTPUT_H

#include "transport/connection.h"
#include "value/packet.h"

namespace bus {

// One message that stands in the queues of several connections.
struct SharedMessage {
    uint32_t users; // queues that it stands in, and whoever made it
    uint32_t size;
    uint8_t *data;
};

struct OutMessage : Node<OutMessage> {
    request_t *request;    // whose call this is, while it can still become one-way
    SharedMessage *shared; // what `data` belongs to; null: it stands behind this structure
    int *fds;              // as many as it has descriptors
    wire::PacketUse use;   // what it takes of the packet that it leaves in
    uint32_t footprint;    // what counts against the limit of the peer
    uint8_t *data;
};

// Room for a message to this connection, in memory that the next one takes again.
wire::Writer output_begin(Connection *connection);
// Queues what was written. Null: over a limit, broken, closed or no memory; then nothing of it is left. With an
// allowance the limits are so many times as high.
OutMessage *output_add(Connection *connection, wire::Writer &writer, uint32_t allowance);
// A message for several connections: its maker is its first user. Null: broken, or no memory.
SharedMessage *shared_message_create(const wire::Writer &writer);
void shared_message_release(SharedMessage *shared);
// Whether one of so many bytes finds room in the connection's queue, so that it need not be made in vain.
bool output_takes(const Connection *connection, uint32_t size);
// Null: no memory. It counts whole in each queue.
OutMessage *output_add_shared(Connection *connection, SharedMessage *shared);
// Takes the first message out of the queue; the layer above is told that its request has left.
OutMessage *output_take(Connection *connection);
void output_free(OutMessage *message);
// Takes out and frees all that is queued.
void output_clear(Connection *connection);

} // namespace bus

#endif

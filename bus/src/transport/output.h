// SPDX-License-Identifier: MIT
// The messages that are queued for a connection.
#ifndef KEX_OUTPUT_H
#define KEX_OUTPUT_H

#include "transport/connection.h"
#include "value/packet.h"

namespace bus {

// A message, or several that leave in one packet: records for a tap.
struct OutMessage : Node<OutMessage> {
    request_t *request;  // whose call this is, while it can still become one-way
    int *fds;            // as many as it has descriptors
    wire::PacketUse use; // what it takes of the packet that it leaves in
    uint32_t room;       // bytes behind it for further ones
    uint32_t footprint;  // what counts against the limit of the peer
    uint8_t *data;
};

// Room for a message to this connection, in memory that the next one takes again.
wire::Writer output_begin(Connection *connection);
// Queues what was written. Null: over a limit, broken, closed or no memory; then nothing of it is left. With an
// allowance the limits are so many times as high.
OutMessage *output_add(Connection *connection, wire::Writer &writer, uint32_t allowance);
// Whether a record of so many bytes finds room in a tap's queue, so that it need not be made in vain.
bool output_takes_record(const Connection *tap, uint32_t size);
// Room in the queue for a record of exactly so many bytes, which the caller writes there at once: behind others that
// have not left yet, as far as a packet goes. Null: no memory.
uint8_t *output_add_record(Connection *tap, uint32_t size);
// Takes the first message out of the queue; the layer above is told that its request has left.
OutMessage *output_take(Connection *connection);
void output_free(OutMessage *message);
// Takes out and frees all that is queued.
void output_clear(Connection *connection);

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// Implements output.h.
#include "transport/output.h"
#include "base/footprint.h"

#include <string.h>
#include <unistd.h>

namespace bus {

namespace {

size_t packet_size(const wire::Writer &writer) {
    return sizeof(OutPacket) + sizeof(int) * writer.fd_count + writer.size;
}

bool output_has_room(const Connection *connection, const wire::Writer &writer, uint32_t allowance) {
    const Account &queued = connection->queued;
    return account_fits(queued.bytes, footprint(packet_size(writer)), kMaxQueuedBytes * allowance) &&
           account_fits(queued.descriptors, writer.fd_count, kMaxQueuedDescriptors * allowance);
}

// Takes the writer's descriptors over. Null: no memory.
OutPacket *packet_create(wire::Writer &writer) {
    size_t fds_size = sizeof(int) * writer.fd_count;
    OutPacket *packet = static_cast<OutPacket *>(malloc(packet_size(writer)));
    if (packet == nullptr)
        return nullptr;
    *packet = {};
    packet->fds = reinterpret_cast<int *>(packet + 1);
    packet->data = reinterpret_cast<uint8_t *>(packet->fds + writer.fd_count);
    packet->fd_count = writer.fd_count;
    packet->size = writer.size;
    packet->footprint = footprint(packet_size(writer));
    memcpy(packet->fds, writer.fds, fds_size);
    memcpy(packet->data, writer.data, writer.size);
    return packet;
}

} // namespace

wire::Writer output_begin(Connection *connection) {
    return wire::packet_begin(connection->transport->outgoing, connection->packet_limit);
}

OutPacket *output_add(Connection *connection, wire::Writer &writer, uint32_t allowance) {
    Transport *transport = connection->transport;
    bool may_leave = writer.why == nullptr && !connection->closed && !connection->write_closed &&
                     output_has_room(connection, writer, allowance);
    OutPacket *packet = may_leave ? packet_create(writer) : nullptr;
    if (packet == nullptr) {
        wire::packet_discard(writer);
        return nullptr;
    }
    connection->output.push(packet);
    account_add(connection->queued, packet->footprint, packet->fd_count);
    if (!transport->loop->in_turn) {
        transport->output_waits = true;
        loop_wake(transport->loop);
    }
    return packet;
}

OutPacket *output_take(Connection *connection) {
    OutPacket *packet = connection->output.pop();
    account_remove(connection->queued, packet->footprint, packet->fd_count);
    if (packet->request != nullptr)
        connection->transport->reports->sent(packet->request);
    return packet;
}

void output_free(OutPacket *packet) {
    for (uint32_t i = 0; i < packet->fd_count; i++)
        close(packet->fds[i]);
    free(packet);
}

void output_clear(Connection *connection) {
    while (connection->output.first != nullptr)
        output_free(output_take(connection));
}

} // namespace bus

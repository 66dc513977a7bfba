// SPDX-License-Identifier: MIT
// Implements output.h.
#include "transport/output.h"
#include "base/closer.h"
#include "base/faults.h"
#include "base/footprint.h"

#include <string.h>
#include <sys/socket.h>

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

// What the plan of faults has for a message that is about to leave.
void faults_befall(Connection *connection) {
    if (fault_is_due(Fault::delay))
        connection->retry_at = clock_now(connection->transport->loop->clock) + fault_delay() * kMillisecond;
    if (fault_is_due(Fault::close))
        shutdown(connection->fd, SHUT_RDWR); // as when the other process dies: both find the end
}

// Takes the writer's descriptors over. Null: no memory.
OutPacket *packet_create(wire::Writer &writer) {
    size_t fds_size = sizeof(int) * writer.fd_count;
    OutPacket *packet = static_cast<OutPacket *>(memory_take(packet_size(writer)));
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

uint32_t shared_footprint(uint32_t size) {
    return footprint(sizeof(OutPacket)) + footprint(sizeof(SharedPacket) + size);
}

bool output_is_open(const Connection *connection) {
    return !connection->closed && !connection->write_closed;
}

void packet_push(Connection *connection, OutPacket *packet) {
    Transport *transport = connection->transport;
    connection->output.push(packet);
    account_add(connection->queued, packet->footprint, packet->fd_count);
    if (!transport->loop->in_turn) {
        transport->output_waits = true;
        loop_wake(transport->loop);
    }
}

} // namespace

wire::Writer output_begin(Connection *connection) {
    return wire::packet_begin(connection->transport->outgoing, connection->packet_limit);
}

OutPacket *output_add(Connection *connection, wire::Writer &writer, uint32_t allowance) {
    if (output_is_open(connection))
        faults_befall(connection);
    bool may_leave =
        writer.why == nullptr && output_is_open(connection) && output_has_room(connection, writer, allowance);
    OutPacket *packet = may_leave ? packet_create(writer) : nullptr;
    if (packet == nullptr) {
        wire::packet_discard(writer);
        return nullptr;
    }
    packet_push(connection, packet);
    return packet;
}

SharedPacket *shared_packet_create(const wire::Writer &writer) {
    void *memory = writer.why == nullptr ? memory_take(sizeof(SharedPacket) + writer.size) : nullptr;
    if (memory == nullptr)
        return nullptr;
    SharedPacket *shared = static_cast<SharedPacket *>(memory);
    *shared = {1, writer.size, reinterpret_cast<uint8_t *>(shared + 1)};
    memcpy(shared->data, writer.data, writer.size);
    return shared;
}

void shared_packet_release(SharedPacket *shared) {
    if (shared != nullptr && --shared->users == 0)
        free(shared);
}

bool output_takes(const Connection *connection, uint32_t size) {
    return output_is_open(connection) &&
           account_fits(connection->queued.bytes, shared_footprint(size), kMaxQueuedBytes);
}

OutPacket *output_add_shared(Connection *connection, SharedPacket *shared) {
    OutPacket *packet = make<OutPacket>();
    if (packet == nullptr)
        return nullptr;
    shared->users++;
    packet->shared = shared;
    packet->data = shared->data;
    packet->size = shared->size;
    packet->footprint = shared_footprint(shared->size);
    packet_push(connection, packet);
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
        foreign_descriptor_close(packet->fds[i]); // a host may pass on what came to it
    shared_packet_release(packet->shared);
    free(packet);
}

void output_clear(Connection *connection) {
    while (connection->output.first != nullptr)
        output_free(output_take(connection));
}

} // namespace bus

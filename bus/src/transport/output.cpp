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

size_t message_size(const wire::Writer &writer) {
    return sizeof(OutMessage) + sizeof(int) * writer.fd_count + writer.size;
}

bool output_has_room(const Connection *connection, const wire::Writer &writer, uint32_t allowance) {
    const Account &queued = connection->queued;
    return account_fits(queued.bytes, footprint(message_size(writer)), kMaxQueuedBytes * allowance) &&
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
OutMessage *message_create(wire::Writer &writer) {
    size_t fds_size = sizeof(int) * writer.fd_count;
    OutMessage *message = static_cast<OutMessage *>(memory_take(message_size(writer)));
    if (message == nullptr)
        return nullptr;
    *message = {};
    message->fds = reinterpret_cast<int *>(message + 1);
    message->data = reinterpret_cast<uint8_t *>(message->fds + writer.fd_count);
    message->use = {1, writer.size, writer.fd_count, writer.values, writer.errors};
    message->footprint = footprint(message_size(writer));
    memcpy(message->fds, writer.fds, fds_size);
    memcpy(message->data, writer.data, writer.size);
    return message;
}

// A block of records for a tap: what is written there costs no memory and no copy of its own. A quiet bus has few in it,
// and gives it back at the end of the turn.
constexpr uint32_t kRecordBlock = 16 * 1024;

uint32_t block_size(const Connection *tap, uint32_t size) {
    const uint32_t usual = kRecordBlock < tap->packet_limit ? kRecordBlock : tap->packet_limit;
    return size < usual ? usual : size;
}

uint32_t block_footprint(const Connection *tap, uint32_t size) {
    return footprint(sizeof(OutMessage) + block_size(tap, size));
}

// The last of the queue, when the record fits behind those in it; else null.
OutMessage *block_with_room(const Connection *tap, uint32_t size) {
    OutMessage *last = tap->output.last;
    return last != nullptr && last->room >= size && last->use.messages < kMaxMessages ? last : nullptr;
}

void message_push(Connection *connection, OutMessage *message) {
    Transport *transport = connection->transport;
    connection->output.push(message);
    account_add(connection->queued, message->footprint, message->use.descriptors);
    if (!transport->loop->in_turn) {
        transport->output_waits = true;
        loop_wake(transport->loop);
    }
}

} // namespace

wire::Writer output_begin(Connection *connection) {
    return wire::message_begin(connection->transport->outgoing, connection->packet_limit);
}

OutMessage *output_add(Connection *connection, wire::Writer &writer, uint32_t allowance) {
    if (connection_is_writable(connection))
        faults_befall(connection);
    bool may_leave =
        writer.why == nullptr && connection_is_writable(connection) && output_has_room(connection, writer, allowance);
    OutMessage *message = may_leave ? message_create(writer) : nullptr;
    if (message == nullptr) {
        wire::message_discard(writer);
        return nullptr;
    }
    message_push(connection, message);
    return message;
}

bool output_takes_record(const Connection *tap, uint32_t size) {
    return connection_is_writable(tap) &&
           (block_with_room(tap, size) != nullptr ||
            account_fits(tap->queued.bytes, block_footprint(tap, size), kMaxQueuedBytes));
}

uint8_t *output_add_record(Connection *tap, uint32_t size) {
    OutMessage *block = block_with_room(tap, size);
    if (block == nullptr) {
        const uint32_t room = block_size(tap, size);
        block = static_cast<OutMessage *>(memory_take(sizeof(OutMessage) + room));
        if (block == nullptr)
            return nullptr;
        *block = {};
        block->data = reinterpret_cast<uint8_t *>(block + 1);
        block->room = room;
        block->footprint = block_footprint(tap, size);
        message_push(tap, block);
    }
    uint8_t *record = block->data + block->use.size;
    block->use.messages++;
    block->use.size += size;
    block->room -= size;
    return record;
}

OutMessage *output_take(Connection *connection) {
    OutMessage *message = connection->output.pop();
    account_remove(connection->queued, message->footprint, message->use.descriptors);
    if (message->request != nullptr)
        connection->transport->reports->sent(message->request);
    return message;
}

void output_free(OutMessage *message) {
    foreign_descriptors_close(message->fds, message->use.descriptors); // a host may pass on what came to it
    free(message);
}

void output_clear(Connection *connection) {
    while (connection->output.first != nullptr)
        output_free(output_take(connection));
}

} // namespace bus

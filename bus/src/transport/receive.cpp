// SPDX-License-Identifier: MIT
// Implements receive.h: one packet at a time, all of it validated before any of it is used.
#include "transport/receive.h"
#include "base/closer.h"
#include "base/trace.h"
#include "transport/arrival.h"
#include "transport/tap.h"
#include "value/packet.h"

#include <errno.h>
#include <initializer_list>
#include <string.h>

namespace bus {

namespace {

// ----------------------------------------------------------------------------------------- How much

// At least the one that has been decided on.
uint32_t packets_within(uint32_t used, uint32_t limit, uint32_t of_one_packet) {
    return used + of_one_packet < limit ? (limit - used) / of_one_packet : 1;
}

// How many packets may be taken at once without passing the limits on what waits from a peer, full as they may be, and
// with room in the process's table for whatever they bring. A peer whose calls hold no descriptors is not expected to
// fill the next packets with them.
uint32_t batch_room(const Connection *connection, uint32_t descriptors, uint32_t wanted) {
    const uint32_t that_fit = descriptors / kKernelDescriptors;
    if (that_fit <= 1)
        return 1;
    const Account &received = connection->received;
    uint32_t room = wanted < that_fit ? wanted : that_fit;
    for (const uint32_t within :
         {packets_within(received.messages, kMaxReceivedCalls, kMaxMessages),
          packets_within(received.bytes, kMaxReceivedBytes, kPacketFootprint),
          received.descriptors == 0 ? kPacketsPerRead
                                    : packets_within(received.descriptors, kMaxReceivedDescriptors, kMaxDescriptors)})
        room = within < room ? within : room;
    return room;
}

// Calls that wait to be run hold the descriptors they came with.
bool descriptors_are_held(const Transport *transport) {
    for (Connection *connection : transport->connections) {
        if (connection->received.descriptors > 0)
            return true;
    }
    return false;
}

// Held by the calls of its process that wait to be run.
uint32_t descriptors_of_process(const Connection *connection) {
    uint32_t held = 0;
    for (const Connection *other : connection->transport->connections) {
        if (other->process_id == connection->process_id)
            held += other->received.descriptors;
    }
    return held;
}

// Without plenty of room no process fills the table by several connections: nobody new would find a place in it.
bool process_holds_many(const Connection *connection) {
    return connection->transport->spare.room < kPlentyOfDescriptors &&
           descriptors_of_process(connection) >= kMaxReceivedDescriptors;
}

// Descriptors are not taken in for a while: too many of their sender are held or being closed.
bool descriptors_have_to_wait(const Connection *connection) {
    return process_holds_many(connection) || closings_pending_of(connection->process_id) >= kMaxClosingsOfProcess;
}

// Whether the next packet has to wait until descriptors have been given back: it brings some, and what would make room
// for them is still under way. The kernel tells without handing them over.
bool packet_has_to_wait(Connection *connection, bool is_short) {
    const bool for_a_while = descriptors_have_to_wait(connection);
    if (!for_a_while && !(is_short && descriptors_are_held(connection->transport)))
        return false;
    if (!packet_brings_descriptors(connection->fd))
        return false;
    // Calls that hold descriptors run in this turn or the next; the rest may take its time.
    if (for_a_while)
        connection_hold_back(connection);
    else if (connection->transport->waits_first == 0)
        connection->transport->waits_first = connection->number;
    return true;
}

// ----------------------------------------------------------------------------------------- What it is

const char *hello_take(Connection *connection, const wire::Message &message) {
    Text name = wire::hello_name(message);
    printable(connection->name, sizeof connection->name, name.bytes, name.length);
    connection->hello_received = true;
    connection->hello_deadline = kNever;
    if (message.kind == wire::kTapHello)
        return tap_admit(connection);
    if (!connection->transport->reports->hello(connection))
        return "out of memory";
    tap_event(connection, KEX_TAP_CONNECTED, "");
    return nullptr;
}

void refusal_take(Connection *connection, const wire::Message &message) {
    Text reason = wire::refusal_reason(message);
    printable(connection->refusal, sizeof connection->refusal, reason.bytes, reason.length);
    char title[kTitleSize];
    note_about(connection->process_id, ZIL_TRACE_ERROR, "%s refused this process: %s",
               connection_title(connection, title, sizeof title), connection->refusal);
    tap_message(connection, TapDirection::received, message.data, message.size);
}

// A sentence when a valid message may not come here and now, else null.
const char *message_reject(const Connection *connection, const wire::Message &message) {
    if (message.kind == wire::kRefused)
        return nullptr;
    if (wire::message_comes_alone(message.data)) {
        if (connection->hello_received)
            return "a second hello came";
        return message.kind == wire::kTapHello && connection->role != Role::server ? "a tap answered" : nullptr;
    }
    if (!connection->hello_received)
        return "no hello came first";
    return connection->role == Role::tap ? "a tap only looks" : nullptr;
}

// Hands it on. A sentence when that is not possible, else null.
const char *message_dispatch(Connection *connection, const wire::Message &message, wire::Descriptors &descriptors) {
    const Reports *reports = connection->transport->reports;
    if (wire::message_comes_alone(message.data))
        return hello_take(connection, message);
    if (message.kind == wire::kRefused) {
        refusal_take(connection, message);
        return nullptr;
    }
    tap_message(connection, TapDirection::received, message.data, message.size);
    switch (message.kind) {
    case wire::kCall:
    case wire::kOneWayCall:
        return reports->call(connection, message, descriptors) ? nullptr : "out of memory";
    case wire::kReply:
        return reports->reply(connection, message, descriptors) ? nullptr : "out of memory";
    case wire::kMissed:
        return nullptr; // taps have it; nobody here waits for anything
    default:
        reports->waiting(connection, message.serial);
        return nullptr;
    }
}

// Hands on the messages of a packet that is in order; of its descriptors remain those that have not been handed on. A
// sentence when one of them is lost, else null.
const char *packet_dispatch(Connection *connection, const wire::Packet &packet, wire::Descriptors &descriptors) {
    const char *why = nullptr;
    for (uint32_t i = 0; i < packet.count && why == nullptr; i++) {
        const wire::Message &message = packet.messages[i];
        wire::Descriptors own = {descriptors.fds, message.descriptors};
        descriptors.fds += message.descriptors;
        descriptors.count -= message.descriptors;
        why = message_dispatch(connection, message, own);
        wire::descriptors_close(own);
    }
    return why;
}

// A sentence what is wrong with the packet, else null.
const char *packet_take(Connection *connection, Arrival &arrival) {
    if (arrival.cut)
        return "the packet is too large";
    if (arrival.descriptors_lost)
        return "descriptors were lost: this process has no more";
    wire::Packet packet;
    const char *why = wire::packet_validate(arrival.packet, arrival.size, arrival.descriptors.count, packet);
    for (uint32_t i = 0; i < packet.count && why == nullptr; i++)
        why = message_reject(connection, packet.messages[i]);
    return why != nullptr ? why : packet_dispatch(connection, packet, arrival.descriptors);
}

void end_take(Connection *connection, const char *why) {
    connection_close(connection, connection->refusal[0] != '\0' ? connection->refusal : why);
}

void arrival_take(Connection *connection, Arrival &arrival) {
    const int32_t charged = closings_charge(connection->process_id);
    spare_received(connection->transport->spare, arrival.descriptors.count);
    const bool at_end = arrival.size == 0 && arrival.descriptors.count == 0;
    if (at_end && !connection->closed)
        end_take(connection, "the peer is gone");
    const char *why = connection->closed ? nullptr : packet_take(connection, arrival);
    wire::descriptors_close(arrival.descriptors);
    if (why != nullptr)
        connection_refuse(connection, why);
    closings_charge(charged);
}

// ----------------------------------------------------------------------------------------- In a turn

// As much as experience says is there: a peer that sends one packet and waits is read once and not asked again in vain;
// one that sends many is read in ever larger batches. What is left makes the loop come back at once; it is left when
// much has been read, so that the calls of others do not stand behind all that one peer can send. Nobody but newcomers
// waits for one that has ended, and it sends no more: all of it is read. True: there may be more for this turn.
bool connection_read_batch(Connection *connection) {
    const bool may_go_on = connection->end_number != 0 || connection->batches < kPacketsPerTurn / kPacketsPerRead;
    if (!may_go_on || !connection_may_be_read(connection))
        return false;
    const uint32_t batch_size = 1u << connection->batch_power;
    const bool more = connection_receive(connection, batch_size, Reading::may_hold_back);
    const bool largest = batch_size == kPacketsPerRead;
    connection->batches++;
    if (more && !largest)
        connection->batch_power++;
    if (!more)
        connection->batch_power = 0;
    return more && (largest || connection->end_number != 0);
}

// A batch from each that is ready, beginning where the last turn had to stop. True: some may have more.
bool round_read(Transport *transport, uint64_t end) {
    bool more = false;
    const uint32_t first = transport->read_last;
    transport->read_last = 0;
    for (const bool behind_it : {true, false}) {
        for (Connection *connection : transport->connections) {
            if (!connection->readable || (connection->number > first) != behind_it)
                continue;
            connection->readable = connection_read_batch(connection);
            more |= connection->readable;
            if (loop_look(transport->loop) < end)
                continue;
            transport->read_last = connection->number;
            return false;
        }
    }
    return more;
}

} // namespace

bool connection_receive(Connection *connection, uint32_t packets, Reading reading) {
    if (connection->closed)
        return false;
    SpareDescriptors &spare = connection->transport->spare;
    Batch batch;
    const uint32_t descriptors = spare_room(spare);
    const bool is_short = descriptors < kMaxDescriptors;
    if (reading == Reading::may_hold_back && packet_has_to_wait(connection, is_short))
        return false;
    const uint32_t wanted = descriptors_have_to_wait(connection) ? 1 : batch_room(connection, descriptors, packets);
    const Room room = descriptors < kKernelDescriptors ? Room::unsure : Room::whole;
    if (is_short)
        spare_release(spare);
    const uint32_t count = batch_receive(connection->fd, connection->transport->incoming, batch, wanted, room);
    const int error = errno;
    if (is_short)
        spare_fill(spare);
    if (count == 0 && error != 0)
        end_take(connection, strerror(error));
    for (uint32_t i = 0; i < count; i++) {
        Arrival arrival;
        batch_unpack(batch, i, arrival);
        arrival_take(connection, arrival);
    }
    return count == wanted && !connection->closed;
}

void connections_read(Transport *transport) {
    if (!transport->any_readable)
        return;
    const uint64_t end = transport->loop->looked_at + kTurnReading;
    transport->waits_first = 0;
    while (round_read(transport, end)) {
    }
    // Else the oldest takes the room that its last calls gave back, turn after turn.
    if (transport->read_last == 0 && transport->waits_first != 0)
        transport->read_last = transport->waits_first - 1;
    // What is left shows again in the next turn.
    transport->any_readable = false;
    for (Connection *connection : transport->connections) {
        connection->readable = false;
        connection->batches = 0;
    }
}

} // namespace bus

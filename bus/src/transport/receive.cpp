// SPDX-License-Identifier: MIT
// Implements receive.h: one packet at a time, all of it validated before any of it is used.
#include "transport/receive.h"
#include "base/closer.h"
#include "transport/arrival.h"
#include "transport/intake.h"

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
    if (that_fit <= 1 || wanted == 1)
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

// For how many descriptors the process's table has room, besides those that are kept.
uint32_t descriptors_room(Transport *transport) {
    SpareDescriptors &spare = transport->spare;
    if (spare_look_is_due(spare)) {
        uint32_t known = closings_pending();
        for (const Connection *connection : transport->connections)
            known += 1 + connection->received.descriptors;
        spare_look(spare, known);
    }
    return spare.room;
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

// Those of many processes leave the host what is kept for it: the last room besides that is for who has none of them.
bool closings_hold_back(const Connection *connection) {
    const uint32_t own = closings_pending_of(connection->process_id);
    const uint32_t least = own > 0 ? kMaxDescriptors : 1;
    return own >= kMaxClosingsOfProcess ||
           (closings_pending() >= kMaxClosings && connection->transport->spare.room < least);
}

// Descriptors are not taken in for a while: too many of their sender are held or being closed.
bool descriptors_have_to_wait(const Connection *connection) {
    return process_holds_many(connection) || closings_hold_back(connection);
}

// Nobody who came later runs before one that has ended is finished, and it chose how long its descriptors take to close.
bool ended_hold_is_over(Connection *connection) {
    if (connection->end_number == 0 || !closings_hold_back(connection))
        return false;
    const uint64_t now = connection->transport->loop->looked_at;
    if (connection->ended_hold == 0)
        connection->ended_hold = now;
    if (connection->ended_hold_read == 0)
        connection->ended_hold_read = now;
    return now - connection->ended_hold_read >= kEndedHold || now - connection->ended_hold >= kEndedHoldInAll;
}

// The packet stays where it is.
void packet_put_off(Connection *connection) {
    if (ended_hold_is_over(connection))
        connection_refuse(connection, "it has left, and descriptors that it sent are not closed yet");
    else
        connection_hold_back(connection);
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
        packet_put_off(connection);
    else if (connection->transport->waits_first == 0)
        connection->transport->waits_first = connection->number;
    return true;
}

// ----------------------------------------------------------------------------------------- What came

// What a read has brought: so many packets, or an error other than 0 that is the connection's end.
void batch_take(Connection *connection, Batch &batch, uint32_t count, int error) {
    connection->messages = 0;
    if (count > 0)
        connection->ended_hold_read = 0;
    if (count == 0 && error != 0)
        connection_end(connection, strerror(error));
    for (uint32_t i = 0; i < count; i++) {
        Arrival arrival;
        batch_unpack(batch, i, arrival);
        arrival_take(connection, arrival);
    }
}

// ----------------------------------------------------------------------------------------- In a turn

static_assert(kMaxMessages <= kMessagesPerRead); // more than that are of several packets

// As much as experience says is there: a peer that sends one packet and waits is read once and not asked again in vain;
// one that sends many is read in ever larger batches, as long as they hold few messages: one of full packets would keep
// the other peers from being read. What is left makes the loop come back at once; it is left when
// much has been read, so that the calls of others do not stand behind all that one peer can send. Nobody but newcomers
// waits for one that has ended, and it sends no more: all of it is read. True: there may be more for this turn.
bool connection_read_batch(Connection *connection) {
    const bool may_go_on = connection->end_number != 0 || connection->batches < kPacketsPerTurn / kPacketsPerRead;
    if (!may_go_on || !connection_may_be_read(connection))
        return false;
    const uint32_t batch_size = 1u << connection->batch_power;
    const bool more = connection_receive(connection, batch_size, Reading::may_hold_back);
    const bool largest = batch_size == kPacketsPerRead || 2 * connection->messages > kMessagesPerRead;
    connection->batches++;
    if (more && !largest)
        connection->batch_power++;
    if (more && connection->messages > kMessagesPerRead)
        connection->batch_power--;
    if (!more)
        connection->batch_power = 0;
    return more && (largest || connection->end_number != 0);
}

// A batch from each that is ready, beginning where the last turn had to stop. True: some may have more.
bool round_read(Transport *transport, uint64_t end) {
    bool more = false;
    const uint64_t first = transport->read_last;
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
    Batch &batch = *connection->transport->incoming;
    const uint32_t descriptors = descriptors_room(connection->transport);
    const bool is_short = descriptors < kMaxDescriptors;
    if (reading == Reading::may_hold_back && packet_has_to_wait(connection, is_short))
        return false;
    const uint32_t wanted = descriptors_have_to_wait(connection) ? 1 : batch_room(connection, descriptors, packets);
    const Room room = descriptors < kKernelDescriptors ? Room::unsure : Room::whole;
    if (is_short)
        spare_release(spare);
    const uint32_t count = batch_receive(connection->fd, batch, wanted, room);
    const int error = errno;
    if (is_short)
        spare_fill(spare);
    batch_take(connection, batch, count, error);
    return count == wanted && !connection->closed;
}

bool connection_may_await(Connection *connection) {
    if (connection->sleep_in_receive == Sleep::unknown)
        connection->sleep_in_receive = socket_sleep_in_receive(connection->fd) ? Sleep::possible : Sleep::impossible;
    return connection->sleep_in_receive == Sleep::possible &&
           descriptors_room(connection->transport) >= kKernelDescriptors;
}

bool connection_await(Connection *connection) {
    Batch &batch = *connection->transport->incoming;
    const uint32_t count = batch_await(connection->fd, batch);
    batch_take(connection, batch, count, errno);
    return count == 1 && !connection->closed;
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

// SPDX-License-Identifier: MIT
// Implements receive.h: one packet at a time, validated before any of it is used.
#include "transport/receive.h"
#include "base/closer.h"
#include "base/trace.h"
#include "transport/tap.h"

#include <errno.h>
#include <initializer_list>
#include <string.h>

namespace bus {

namespace {

// The kernel passes at most this many in one packet: all of them are received, so that all can be closed.
constexpr uint32_t kKernelDescriptors = 253;

struct Arrival {
    const uint8_t *packet;
    uint32_t size;
    wire::Descriptors descriptors;
    int fds[kKernelDescriptors];
    bool cut;              // longer than a packet may be
    bool descriptors_lost; // the process's table was full
};

// Several packets from one system call: a sender whose queue is full is woken once for all of them.
struct Batch {
    mmsghdr messages[kPacketsPerRead];
    iovec parts[kPacketsPerRead];
    alignas(cmsghdr) char control[kPacketsPerRead][CMSG_SPACE(sizeof(int) * kKernelDescriptors)];
};

// ----------------------------------------------------------------------------------------- From the kernel

void descriptors_collect(msghdr &message, Arrival &arrival) {
    arrival.descriptors = {arrival.fds, 0};
    for (cmsghdr *head = CMSG_FIRSTHDR(&message); head != nullptr; head = CMSG_NXTHDR(&message, head)) {
        if (head->cmsg_level != SOL_SOCKET || head->cmsg_type != SCM_RIGHTS)
            continue;
        size_t bytes = head->cmsg_len - CMSG_LEN(0);
        uint32_t count = static_cast<uint32_t>(bytes / sizeof(int));
        if (count > kKernelDescriptors - arrival.descriptors.count)
            count = kKernelDescriptors - arrival.descriptors.count;
        memcpy(arrival.fds + arrival.descriptors.count, CMSG_DATA(head), count * sizeof(int));
        for (uint32_t i = 0; i < count; i++)
            foreign_descriptor_tame(arrival.fds[arrival.descriptors.count++]);
    }
}

void batch_unpack(Batch &batch, uint32_t index, Arrival &arrival) {
    msghdr &message = batch.messages[index].msg_hdr;
    descriptors_collect(message, arrival);
    arrival.packet = static_cast<const uint8_t *>(batch.parts[index].iov_base);
    arrival.size = batch.messages[index].msg_len;
    arrival.cut = (message.msg_flags & MSG_TRUNC) != 0;
    arrival.descriptors_lost = (message.msg_flags & MSG_CTRUNC) != 0;
}

// One packet costs less by the call for one.
int messages_receive(int fd, mmsghdr *messages, uint32_t room) {
    constexpr int kFlags = MSG_DONTWAIT | MSG_CMSG_CLOEXEC;
    if (room > 1)
        return recvmmsg(fd, messages, room, kFlags, nullptr);
    const ssize_t size = recvmsg(fd, &messages->msg_hdr, kFlags);
    messages->msg_len = size < 0 ? 0 : static_cast<unsigned>(size);
    return size < 0 ? -1 : 1;
}

// How many packets came, at most `room`; 0: nothing now, or with an errno other than 0 the end.
uint32_t batch_receive(Connection *connection, Batch &batch, uint32_t room) {
    for (;;) {
        for (uint32_t i = 0; i < room; i++) {
            batch.parts[i] = {connection->transport->incoming + i * kMaxPacket, kMaxPacket};
            batch.messages[i] = {};
            batch.messages[i].msg_hdr.msg_iov = &batch.parts[i];
            batch.messages[i].msg_hdr.msg_iovlen = 1;
            batch.messages[i].msg_hdr.msg_control = batch.control[i];
            batch.messages[i].msg_hdr.msg_controllen = sizeof batch.control[i];
        }
        const int count = messages_receive(connection->fd, batch.messages, room);
        if (count > 0)
            return static_cast<uint32_t>(count);
        // A reset is reported once, in front of what can still be read.
        if (errno == EINTR || errno == ECONNRESET)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            errno = 0;
        return 0;
    }
}

// ----------------------------------------------------------------------------------------- How much

uint32_t packets_within(uint32_t used, uint32_t limit, uint32_t of_one_packet) {
    return used < limit ? (limit - used + of_one_packet - 1) / of_one_packet : 1;
}

// How many packets may be taken at once without passing the limits on what waits from a peer by more than one packet
// would; a peer that has sent no descriptors lately is not expected to fill the next packets with them.
uint32_t batch_room(const Connection *connection, uint32_t descriptors, uint32_t wanted) {
    if (descriptors < kPlentyOfDescriptors)
        return 1;
    const Account &received = connection->received;
    uint32_t room = wanted;
    for (const uint32_t within :
         {packets_within(received.messages, kMaxReceivedCalls, 1),
          packets_within(received.bytes, kMaxReceivedBytes, kMaxPacket),
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

// ----------------------------------------------------------------------------------------- What it is

const char *hello_take(Connection *connection, const wire::Message &message) {
    if (connection->hello_received)
        return "a second hello came";
    if (message.kind == wire::kTapHello && connection->role != Role::server)
        return "a tap answered";
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
    note(ZIL_TRACE_ERROR, "%s refused this process: %s", connection_title(connection, title, sizeof title),
         connection->refusal);
    tap_packet(connection, TapDirection::received, message.data, message.size);
}

// Hands a valid message on. A sentence when it may not come here and now, else null.
const char *message_dispatch(Connection *connection, const wire::Message &message, wire::Descriptors &descriptors) {
    const Reports *reports = connection->transport->reports;
    if (message.kind == wire::kHello || message.kind == wire::kTapHello)
        return hello_take(connection, message);
    if (message.kind == wire::kRefused) {
        refusal_take(connection, message);
        return nullptr;
    }
    if (!connection->hello_received)
        return "no hello came first";
    if (connection->role == Role::tap)
        return "a tap only looks";
    tap_packet(connection, TapDirection::received, message.data, message.size);
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

// A sentence what is wrong with the packet, else null.
const char *packet_take(Connection *connection, Arrival &arrival) {
    if (arrival.cut)
        return "the packet is too large";
    if (arrival.descriptors_lost)
        return "descriptors were lost: this process has no more";
    wire::Message message;
    const char *why = wire::message_validate(arrival.packet, arrival.size, arrival.descriptors.count, message);
    return why != nullptr ? why : message_dispatch(connection, message, arrival.descriptors);
}

void end_take(Connection *connection, const char *why) {
    connection_close(connection, connection->refusal[0] != '\0' ? connection->refusal : why);
}

void arrival_take(Connection *connection, Arrival &arrival) {
    spare_received(connection->transport->spare, arrival.descriptors.count);
    const bool at_end = arrival.size == 0 && arrival.descriptors.count == 0;
    if (at_end && !connection->closed)
        end_take(connection, "the peer is gone");
    const char *why = connection->closed ? nullptr : packet_take(connection, arrival);
    wire::descriptors_close(arrival.descriptors);
    if (why != nullptr)
        connection_refuse(connection, why);
}

// ----------------------------------------------------------------------------------------- In a turn

// As much as experience says is there: a peer that sends one packet and waits is read once and not asked again in vain;
// one that sends many is read in ever larger batches. What is left makes the loop come back at once; it is left when
// much has been read, so that the calls of others do not stand behind all that one peer can send. Nobody but newcomers waits
// for one that has ended, and it sends no more: all of it is read. True: there may be more for this turn.
bool connection_read_batch(Connection *connection) {
    const bool may_go_on = connection->end_number != 0 || connection->reads < kPacketsPerTurn / kPacketsPerRead;
    if (!may_go_on || connection_is_full(connection))
        return false;
    const uint32_t batch_size = 1u << connection->batch_power;
    const bool more = connection_receive(connection, batch_size, Reading::may_hold_back);
    const bool largest = batch_size == kPacketsPerRead;
    connection->reads++;
    if (more && !largest)
        connection->batch_power++;
    if (!more)
        connection->batch_power = 0;
    return more && largest;
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
            if (clock_monotonic() < end)
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
    // What has come may make room again once it has been run.
    if (is_short && reading == Reading::may_hold_back && descriptors_are_held(connection->transport))
        return false;
    const uint32_t room = batch_room(connection, descriptors, packets);
    if (is_short)
        spare_release(spare);
    const uint32_t count = batch_receive(connection, batch, room);
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
    return count == room && !connection->closed;
}

void connections_read(Transport *transport) {
    bool any = false;
    for (Connection *connection : transport->connections) {
        any |= connection->readable;
        connection->reads = 0;
    }
    const uint64_t end = transport->loop->turn_began + kTurnReading;
    while (any)
        any = round_read(transport, end);
    // What is left shows again in the next turn.
    for (Connection *connection : transport->connections)
        connection->readable = false;
}

} // namespace bus

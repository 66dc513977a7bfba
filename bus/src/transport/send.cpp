// SPDX-License-Identifier: MIT
// Implements send.h.
#include "transport/send.h"
#include "base/faults.h"
#include "base/trace.h"
#include "transport/output.h"
#include "transport/tap.h"

#include <errno.h>
#include <initializer_list>
#include <poll.h>
#include <string.h>

namespace bus {

namespace {

// Several packets to one system call: what a turn has gathered for a peer costs that peer one waking, not one each.
constexpr uint32_t kPacketsPerSend = 8;
// Messages of one batch: two full packets, or eight of sixteen. More would take another page of each process's stack.
// The last packet is no longer than what is left of them.
constexpr uint32_t kPartsPerSend = 2 * kMaxMessages;
// Room for descriptors in one batch; a packet of many comes alone or first.
constexpr size_t kControlPerSend = 2 * CMSG_SPACE(sizeof(int) * kMaxDescriptors);

constexpr int kSendFlags = MSG_DONTWAIT | MSG_NOSIGNAL;

// Packets put together from what stands first in a queue, which stays as it is.
struct Departure {
    mmsghdr packets[kPacketsPerSend];
    uint32_t entries[kPacketsPerSend]; // of the queue, in each packet
    iovec parts[kPartsPerSend];
    alignas(cmsghdr) char control[kControlPerSend];
    uint32_t count;
    uint32_t parts_used;
    size_t control_used;
};

// The descriptors of so many messages from this one on, which leave in one packet. False: the batch has no room for
// them.
bool descriptors_attach(Departure &departure, msghdr &packet, OutMessage *message, uint32_t entries,
                        const wire::PacketUse &use) {
    if (use.descriptors == 0)
        return true;
    const size_t bytes = CMSG_SPACE(sizeof(int) * use.descriptors);
    if (bytes > sizeof departure.control - departure.control_used)
        return false;
    char *control = departure.control + departure.control_used;
    memset(control, 0, bytes);
    packet.msg_control = control;
    packet.msg_controllen = static_cast<decltype(packet.msg_controllen)>(bytes); // each C library has its own type
    cmsghdr *head = CMSG_FIRSTHDR(&packet);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = static_cast<decltype(head->cmsg_len)>(CMSG_LEN(sizeof(int) * use.descriptors));
    unsigned char *fds = CMSG_DATA(head);
    for (uint32_t i = 0; i < entries; i++, message = List<OutMessage>::after(message)) {
        memcpy(fds, message->fds, sizeof(int) * message->use.descriptors);
        fds += sizeof(int) * message->use.descriptors;
    }
    departure.control_used += bytes;
    return true;
}

// Puts the next packet together: as many messages as fit, from `next` on, but no more than `most`; then `next` stands
// behind them. False: there is nothing left, or the batch is full.
bool packet_gather(Departure &departure, OutMessage *&next, uint32_t limit, uint32_t most) {
    const uint32_t room = kPartsPerSend - departure.parts_used;
    if (next == nullptr || departure.count == kPacketsPerSend || room == 0)
        return false;
    wire::PacketUse use = {};
    iovec *parts = departure.parts + departure.parts_used;
    OutMessage *message = next;
    uint32_t entries = 0;
    bool goes_on = true;
    while (message != nullptr && goes_on && entries < room && use.messages < most &&
           wire::packet_takes(use, message->use, limit)) {
        parts[entries++] = {message->data, message->use.size};
        goes_on = !wire::message_comes_alone(message->data);
        message = List<OutMessage>::after(message);
    }
    mmsghdr &packet = departure.packets[departure.count];
    packet = {};
    packet.msg_hdr.msg_iov = parts;
    packet.msg_hdr.msg_iovlen = entries;
    if (!descriptors_attach(departure, packet.msg_hdr, next, entries, use))
        return false;
    departure.entries[departure.count++] = entries;
    departure.parts_used += entries;
    next = message;
    return true;
}

// One packet costs less by the call for one.
int batch_send(int fd, mmsghdr *packets, uint32_t count) {
    if (fault_is_due(Fault::send))
        return -1;
    if (count > 1)
        return sendmmsg(fd, packets, count, kSendFlags);
    return sendmsg(fd, &packets->msg_hdr, kSendFlags) < 0 ? -1 : 1;
}

struct Sent {
    uint32_t entries;  // of the queue, that left; 0: none
    uint32_t together; // of them, in the first packet
    int error;         // of the first packet, when it did not leave
};

// The first message of a queue leaves in a packet of its own, without descriptors.
Sent message_send(int fd, const OutMessage *message) {
    ssize_t size;
    do
        size = fault_is_due(Fault::send) ? -1 : send(fd, message->data, message->use.size, kSendFlags);
    while (size < 0 && errno == EINTR);
    return size < 0 ? Sent{0, 1, errno} : Sent{1, 1, 0};
}

// As many as a batch has room for, with no more than `most` messages in a packet.
Sent messages_send(const Connection *connection, uint32_t most) {
    Departure departure;
    departure.count = departure.parts_used = 0;
    departure.control_used = 0;
    OutMessage *next = connection->output.first;
    while (packet_gather(departure, next, connection->packet_limit, most)) {
    }
    Sent sent = {0, departure.entries[0], 0};
    for (;;) {
        const int packets = batch_send(connection->fd, departure.packets, departure.count);
        for (int i = 0; i < packets; i++)
            sent.entries += departure.entries[i];
        if (packets > 0)
            return sent;
        if (errno == EINTR)
            continue;
        sent.error = errno;
        return sent;
    }
}

// Sends from the head of the queue, which stays as it is. One message alone, as a call and its reply are, needs no
// gathering: the kernel copies the bytes alone, not what describes them, too (3.5 % of a round trip).
Sent output_send(const Connection *connection, uint32_t most) {
    const OutMessage *first = connection->output.first;
    if (connection->output.count == 1 && first->use.descriptors == 0)
        return message_send(connection->fd, first);
    return messages_send(connection, most);
}

void message_report_unsent(Connection *connection, OutMessage *message, int error) {
    if (connection->role == Role::tap) {
        connection->lost += message->use.messages;
        return;
    }
    note_about(connection->process_id, ZIL_TRACE_ERROR, "a packet of %u bytes could not be sent: %s", message->use.size,
               strerror(error));
    if (message->request != nullptr)
        connection->transport->reports->unsent(message->request, strerror(error));
    else // a reply, as a rule, that somebody waits for: nobody here can be told, so both find the end
        shutdown(connection->fd, SHUT_RDWR);
}

bool error_ends_writing(int error) {
    return error == EPIPE || error == ECONNRESET || error == ENOTCONN;
}

bool error_passes(int error) {
    return error == ENOBUFS || error == ENOMEM || error == ETOOMANYREFS;
}

bool error_is_usual(int error) {
    return error == EAGAIN || error_passes(error) || error_ends_writing(error);
}

// The first message cannot be sent, now or ever. True: the next one may be tried.
bool send_failed(Connection *connection, int error) {
    Loop *loop = connection->transport->loop;
    if (error == EAGAIN) {
        source_set_interest(loop, connection, connection->reads, true);
        return false;
    }
    if (error_passes(error)) {
        connection->retry_at = clock_now(loop->clock) + kSendRetry;
        return false;
    }
    OutMessage *message = output_take(connection);
    // The connection is not closed here. What the peer sent before it went is still to be read, and its end is found
    // behind it.
    if (error_ends_writing(error))
        connection->write_closed = true;
    else
        message_report_unsent(connection, message, error);
    output_free(message);
    return true;
}

} // namespace

void connection_flush(Connection *connection) {
    uint32_t most = kMaxMessages;
    while (!connection->closed && connection->output.first != nullptr) {
        Sent sent = {0, 1, EPIPE};
        if (!connection->write_closed)
            sent = output_send(connection, most);
        // What is wrong with one message does not take others with it that would have left in the same packet.
        const bool left_nothing = sent.entries == 0;
        most = left_nothing && sent.together > 1 && !error_is_usual(sent.error) ? 1 : kMaxMessages;
        if (most == 1)
            continue;
        if (left_nothing && !send_failed(connection, sent.error))
            return;
        for (; sent.entries > 0; sent.entries--) {
            OutMessage *message = output_take(connection);
            tap_message(connection, TapDirection::sent, message->data, message->use.size);
            output_free(message);
        }
    }
    if (!connection->closed && connection->writes)
        source_set_interest(connection->transport->loop, connection, connection->reads, false);
}

void connection_flush_if_much(Connection *connection) {
    if (connection->queued.bytes > kFlushBytes && connection->retry_at == kNever)
        connection_flush(connection);
}

void connections_flush(Transport *transport) {
    for (Connection *connection : transport->connections) {
        if (connection->closed)
            continue;
        if (connection->output.first != nullptr && connection->retry_at == 0 && connection->role != Role::tap)
            connection_flush(connection);
        // A full one is left alone until its calls have run, one that was held back until it is to be tried again.
        source_set_interest(transport->loop, connection, connection_may_be_read(connection), connection->writes);
    }
    for (Connection *connection = transport->connections.first; transport->taps > 0 && connection != nullptr;
         connection = List<Connection>::after(connection)) {
        if (!connection->closed && connection->role == Role::tap && connection->retry_at == 0)
            connection_flush(connection);
    }
}

void connections_drain(Transport *transport, uint64_t nanoseconds) {
    uint64_t end = clock_monotonic() + nanoseconds;
    for (;;) {
        pollfd waiting[kMaxPeers];
        nfds_t count = 0;
        for (const bool to_taps : {false, true}) {
            for (Connection *connection : transport->connections) {
                if ((connection->role == Role::tap) != to_taps)
                    continue;
                connection_flush(connection);
                if (!connection->closed && connection->output.first != nullptr && count < kMaxPeers)
                    waiting[count++] = {connection->fd, POLLOUT, 0};
            }
        }
        uint64_t now = clock_monotonic();
        if (count == 0 || now >= end)
            return;
        poll(waiting, count, static_cast<int>((end - now) / kMillisecond) + 1);
    }
}

} // namespace bus

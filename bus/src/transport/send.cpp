// SPDX-License-Identifier: MIT
// Implements send.h.
#include "transport/send.h"
#include "base/faults.h"
#include "base/trace.h"
#include "transport/output.h"
#include "transport/tap.h"

#include <errno.h>
#include <poll.h>
#include <string.h>

namespace bus {

namespace {

// Several packets to one system call: what a turn has gathered for a peer costs that peer one waking, not one each.
constexpr uint32_t kPacketsPerSend = 32;
// Room for descriptors in one batch; a packet of many comes alone or first.
constexpr size_t kControlPerSend = 2 * CMSG_SPACE(sizeof(int) * kMaxDescriptors);

// Puts the packet's descriptors into the control bytes. The bytes used.
size_t descriptors_attach(const OutPacket *packet, msghdr &message, char *control) {
    if (packet->fd_count == 0)
        return 0;
    const size_t bytes = CMSG_SPACE(sizeof(int) * packet->fd_count);
    memset(control, 0, bytes);
    message.msg_control = control;
    message.msg_controllen = static_cast<decltype(message.msg_controllen)>(bytes); // each C library has its own type
    cmsghdr *head = CMSG_FIRSTHDR(&message);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = static_cast<decltype(head->cmsg_len)>(CMSG_LEN(sizeof(int) * packet->fd_count));
    memcpy(CMSG_DATA(head), packet->fds, sizeof(int) * packet->fd_count);
    return bytes;
}

// One packet costs less by the call for one.
int batch_send(int fd, mmsghdr *messages, uint32_t count) {
    constexpr int kFlags = MSG_DONTWAIT | MSG_NOSIGNAL;
    if (fault_is_due(Fault::send))
        return -1;
    if (count > 1)
        return sendmmsg(fd, messages, count, kFlags);
    return sendmsg(fd, &messages->msg_hdr, kFlags) < 0 ? -1 : 1;
}

// Sends from the head of the queue, which stays as it is. How many left; 0: none, with the error of the first.
uint32_t output_send(const Connection *connection, int &error) {
    mmsghdr messages[kPacketsPerSend];
    iovec parts[kPacketsPerSend];
    alignas(cmsghdr) char control[kControlPerSend];
    size_t control_used = 0;
    uint32_t count = 0;
    for (OutPacket *packet = connection->output.first; packet != nullptr && count < kPacketsPerSend;
         packet = List<OutPacket>::after(packet)) {
        if (packet->fd_count > 0 && control_used + CMSG_SPACE(sizeof(int) * packet->fd_count) > sizeof control)
            break;
        messages[count] = {};
        parts[count] = {packet->data, packet->size};
        messages[count].msg_hdr.msg_iov = &parts[count];
        messages[count].msg_hdr.msg_iovlen = 1;
        control_used += descriptors_attach(packet, messages[count].msg_hdr, control + control_used);
        count++;
    }
    for (;;) {
        const int sent = batch_send(connection->fd, messages, count);
        if (sent > 0)
            return static_cast<uint32_t>(sent);
        if (errno == EINTR)
            continue;
        error = errno;
        return 0;
    }
}

void packet_report_unsent(Connection *connection, OutPacket *packet, int error) {
    if (connection->role == Role::tap) {
        connection->lost++;
        return;
    }
    note_about(connection->process_id, ZIL_TRACE_ERROR, "a packet of %u bytes could not be sent: %s", packet->size,
               strerror(error));
    if (packet->request != nullptr)
        connection->transport->reports->unsent(packet->request, strerror(error));
}

// The first packet cannot be sent, now or ever. True: the next one may be tried.
bool send_failed(Connection *connection, int error) {
    Loop *loop = connection->transport->loop;
    if (error == EAGAIN) {
        source_set_interest(loop, connection, connection->reads, true);
        return false;
    }
    if (error == ENOBUFS || error == ENOMEM || error == ETOOMANYREFS) {
        connection->retry_at = clock_now(loop->clock) + kSendRetry;
        return false;
    }
    OutPacket *packet = output_take(connection);
    // The connection is not closed here. What the peer sent before it went is still to be read, and its end is found
    // behind it.
    if (error == EPIPE || error == ECONNRESET || error == ENOTCONN)
        connection->write_closed = true;
    else
        packet_report_unsent(connection, packet, error);
    output_free(packet);
    return true;
}

} // namespace

void connection_flush(Connection *connection) {
    while (!connection->closed && connection->output.first != nullptr) {
        int error = EPIPE;
        uint32_t sent = connection->write_closed ? 0 : output_send(connection, error);
        if (sent == 0 && !send_failed(connection, error))
            return;
        for (; sent > 0; sent--) {
            OutPacket *packet = output_take(connection);
            tap_packet(connection, TapDirection::sent, packet->data, packet->size);
            output_free(packet);
        }
    }
    if (!connection->closed)
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
        for (Connection *connection : transport->connections) {
            connection_flush(connection);
            if (!connection->closed && connection->output.first != nullptr && count < kMaxPeers)
                waiting[count++] = {connection->fd, POLLOUT, 0};
        }
        uint64_t now = clock_monotonic();
        if (count == 0 || now >= end)
            return;
        poll(waiting, count, static_cast<int>((end - now) / kMillisecond) + 1);
    }
}

} // namespace bus

// SPDX-License-Identifier: MIT
// What is queued for a connection, and how it leaves.
#include "base/trace.h"
#include "calls/request.h"
#include "loop/loop.h"
#include "transport/connection.h"
#include "transport/tap.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace bus;

namespace {

void free_packet(OutPacket *packet) {
    for (uint32_t i = 0; i < packet->fd_count; i++)
        close(packet->fds[i]);
    free(packet);
}

OutPacket *take_first(Link *link) {
    OutPacket *packet = link->out.pop();
    link->out_bytes -= packet->size;
    link->out_fds -= packet->fd_count;
    if (packet->request != nullptr)
        request_left(packet->request);
    return packet;
}

// Several packets to one system call: what a turn has gathered for a peer costs that peer one waking, not one each.
constexpr uint32_t kPacketsPerSend = 32;
// Room for descriptors in one batch; a packet of many comes alone or first.
constexpr size_t kControlPerSend = 2 * CMSG_SPACE(sizeof(int) * kMaxDescriptors);

// Puts the packet's descriptors into the control bytes. The bytes used.
size_t attach_descriptors(const OutPacket *packet, msghdr &message, char *control) {
    if (packet->fd_count == 0)
        return 0;
    const size_t bytes = CMSG_SPACE(sizeof(int) * packet->fd_count);
    memset(control, 0, bytes);
    message.msg_control = control;
    message.msg_controllen = bytes;
    cmsghdr *head = CMSG_FIRSTHDR(&message);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(sizeof(int) * packet->fd_count);
    memcpy(CMSG_DATA(head), packet->fds, sizeof(int) * packet->fd_count);
    return bytes;
}

// One packet costs less by the call for one.
int send_messages(int fd, mmsghdr *messages, uint32_t count) {
    constexpr int kFlags = MSG_DONTWAIT | MSG_NOSIGNAL;
    if (count > 1)
        return sendmmsg(fd, messages, count, kFlags);
    return sendmsg(fd, &messages->msg_hdr, kFlags) < 0 ? -1 : 1;
}

// Sends from the head of the queue, which stays as it is. How many left; 0: none, with the error of the first.
uint32_t send_packets(const Link *link, int &error) {
    mmsghdr messages[kPacketsPerSend];
    iovec parts[kPacketsPerSend];
    alignas(cmsghdr) char control[kControlPerSend];
    size_t control_used = 0;
    uint32_t count = 0;
    for (OutPacket *packet = link->out.first; packet != nullptr && count < kPacketsPerSend;
         packet = List<OutPacket>::after(packet)) {
        if (packet->fd_count > 0 && control_used + CMSG_SPACE(sizeof(int) * packet->fd_count) > sizeof control)
            break;
        messages[count] = {};
        parts[count] = {packet->data, packet->size};
        messages[count].msg_hdr.msg_iov = &parts[count];
        messages[count].msg_hdr.msg_iovlen = 1;
        control_used += attach_descriptors(packet, messages[count].msg_hdr, control + control_used);
        count++;
    }
    for (;;) {
        const int sent = send_messages(link->fd, messages, count);
        if (sent > 0)
            return static_cast<uint32_t>(sent);
        if (sent < 0 && errno == EINTR)
            continue;
        error = errno;
        return 0;
    }
}

void report_unsent(Link *link, OutPacket *packet, int error) {
    if (link->role == Role::tap) {
        link->lost++;
        return;
    }
    note(ZIL_TRACE_ERROR, "a packet of %u bytes could not be sent: %s", packet->size, strerror(error));
    if (packet->request != nullptr)
        request_fail(packet->request, KEX_ERROR_TOO_LARGE, "Packet not sent", strerror(error));
}

bool goes_over(uint32_t queued, uint32_t more, uint32_t limit) {
    return more > limit || queued > limit - more;
}

} // namespace

namespace bus {

OutPacket *link_queue(Link *link, wire::Writer &writer, uint32_t allowance) {
    bool refused = writer.why != nullptr || link->closed || link->mute ||
                   goes_over(link->out_bytes, writer.size, kMaxQueuedBytes * allowance) ||
                   goes_over(link->out_fds, writer.fd_count, kMaxQueuedDescriptors * allowance);
    size_t fds_size = sizeof(int) * writer.fd_count;
    OutPacket *packet =
        refused ? nullptr : static_cast<OutPacket *>(malloc(sizeof(OutPacket) + fds_size + writer.size));
    if (packet == nullptr) {
        wire::packet_discard(writer);
        return nullptr;
    }
    *packet = {};
    packet->fds = reinterpret_cast<int *>(packet + 1);
    packet->data = reinterpret_cast<uint8_t *>(packet->fds + writer.fd_count);
    packet->fd_count = writer.fd_count;
    packet->size = writer.size;
    memcpy(packet->fds, writer.fds, fds_size);
    memcpy(packet->data, writer.data, writer.size);
    link->out.push(packet);
    link->out_bytes += packet->size;
    link->out_fds += packet->fd_count;
    if (!link->bus->loop.in_turn) {
        link->bus->output_waits = true;
        loop_wake(&link->bus->loop);
    }
    return packet;
}

void link_flush(Link *link) {
    while (!link->closed && link->out.first != nullptr) {
        int error = EPIPE;
        uint32_t sent = link->mute ? 0 : send_packets(link, error);
        for (; sent > 0; sent--) {
            OutPacket *packet = take_first(link);
            tap_packet(link, TapDirection::sent, packet->data, packet->size);
            free_packet(packet);
            error = 0;
        }
        if (error == 0)
            continue;
        if (error == EAGAIN || error == EWOULDBLOCK) {
            source_set_interest(&link->bus->loop, link, link->reads, true);
            return;
        }
        if (error == ENOBUFS || error == ENOMEM || error == ETOOMANYREFS) {
            link->retry_at = clock_now(link->bus->loop.clock) + kSendRetry;
            return;
        }
        OutPacket *packet = take_first(link);
        // Kept: the connection is not closed here. What the peer sent before it went is still to be read, and its end
        // is found behind it.
        if (error == EPIPE || error == ECONNRESET || error == ENOTCONN)
            link->mute = true;
        else
            report_unsent(link, packet, error);
        free_packet(packet);
    }
    if (!link->closed)
        source_set_interest(&link->bus->loop, link, link->reads, false);
}

void links_flush(kex_t *bus) {
    for (Link *link = bus->links.first; link != nullptr; link = List<Link>::after(link)) {
        if (link->closed)
            continue;
        if (link->out.first != nullptr && link->retry_at == 0 && link->role != Role::tap)
            link_flush(link);
        // A full one is left alone until its calls have run.
        source_set_interest(&bus->loop, link, !link_is_full(link), link->writes);
    }
    // Taps last: what was just sent is copied to them.
    for (Link *link = bus->links.first; bus->taps > 0 && link != nullptr; link = List<Link>::after(link)) {
        if (!link->closed && link->role == Role::tap && link->retry_at == 0)
            link_flush(link);
    }
}

void link_drop_output(Link *link) {
    while (link->out.first != nullptr)
        free_packet(take_first(link));
}

void links_drain_output(kex_t *bus, uint64_t nanoseconds) {
    uint64_t end = clock_monotonic() + nanoseconds;
    for (;;) {
        pollfd waiting[kMaxPeers];
        nfds_t count = 0;
        for (Link *link = bus->links.first; link != nullptr; link = List<Link>::after(link)) {
            link_flush(link);
            if (!link->closed && link->out.first != nullptr && count < kMaxPeers)
                waiting[count++] = {link->fd, POLLOUT, 0};
        }
        uint64_t now = clock_monotonic();
        if (count == 0 || now >= end)
            return;
        poll(waiting, count, static_cast<int>((end - now) / kMillisecond) + 1);
    }
}

} // namespace bus

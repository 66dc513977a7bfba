// SPDX-License-Identifier: MIT
// Implements arrival.h.
#include "transport/arrival.h"
#include "base/faults.h"
#include "base/first_byte.h"

#include <errno.h>
#include <string.h>

namespace bus {

namespace {

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
        arrival.descriptors.count += count;
    }
}

int message_receive(int fd, mmsghdr *message, int flags) {
    const ssize_t size = recvmsg(fd, &message->msg_hdr, MSG_CMSG_CLOEXEC | flags);
    message->msg_len = size < 0 ? 0 : static_cast<unsigned>(size);
    return size < 0 ? -1 : 1;
}

void batch_prepare(Batch &batch, uint32_t packets) {
    for (uint32_t i = 0; i < packets; i++) {
        Batch::Place &place = batch.places[i];
        batch.parts[i] = {place.packet, sizeof place.packet};
        batch.messages[i] = {};
        batch.messages[i].msg_hdr.msg_iov = &batch.parts[i];
        batch.messages[i].msg_hdr.msg_iovlen = 1;
        batch.messages[i].msg_hdr.msg_control = place.control;
        batch.messages[i].msg_hdr.msg_controllen = sizeof place.control;
    }
}

// What a look hands over are copies: as long as the packet is there, none of them is the last. Once all are ours, those
// of the packet are not.
int message_receive_unsure(int fd, mmsghdr *message) {
    const int count = message_receive(fd, message, MSG_DONTWAIT | MSG_PEEK);
    if (count < 0 || (message->msg_hdr.msg_flags & MSG_CTRUNC) != 0)
        return count;
    FirstByte first;
    const ssize_t rest = recvmsg(fd, first_byte_prepare(first), MSG_DONTWAIT);
    (void)rest; // it is the same packet
    return count;
}

// One packet costs less by the call for one.
int messages_receive(int fd, mmsghdr *messages, uint32_t packets, Room room) {
    if (fault_is_due(Fault::receive))
        return -1;
    if (room == Room::unsure)
        return message_receive_unsure(fd, messages);
    if (packets == 1)
        return message_receive(fd, messages, MSG_DONTWAIT);
    return recvmmsg(fd, messages, packets, MSG_DONTWAIT | MSG_CMSG_CLOEXEC, nullptr);
}

} // namespace

void batch_unpack(Batch &batch, uint32_t index, Arrival &arrival) {
    msghdr &message = batch.messages[index].msg_hdr;
    descriptors_collect(message, arrival);
    arrival.packet = batch.places[index].packet;
    arrival.size = batch.messages[index].msg_len;
    arrival.cut = (message.msg_flags & MSG_TRUNC) != 0;
    arrival.descriptors_lost = (message.msg_flags & MSG_CTRUNC) != 0;
}

uint32_t batch_receive(int fd, Batch &batch, uint32_t packets, Room room) {
    for (;;) {
        batch_prepare(batch, packets);
        const int count = messages_receive(fd, batch.messages, packets, room);
        if (count > 0)
            return static_cast<uint32_t>(count);
        // A reset is reported once, in front of what can still be read.
        if (errno == EINTR || errno == ECONNRESET)
            continue;
        if (errno == EAGAIN)
            errno = 0;
        return 0;
    }
}

uint32_t batch_await(int fd, Batch &batch) {
    batch_prepare(batch, 1);
    const int count = fault_is_due(Fault::receive) ? -1 : message_receive(fd, batch.messages, 0);
    if (count > 0)
        return 1;
    if (errno == EINTR || errno == ECONNRESET || errno == EAGAIN)
        errno = 0;
    return 0;
}

bool packet_brings_descriptors(int fd) {
    FirstByte first;
    return recvmsg(fd, first_byte_prepare(first), MSG_PEEK | MSG_DONTWAIT) >= 0 &&
           (first.message.msg_flags & MSG_CTRUNC) != 0;
}

} // namespace bus

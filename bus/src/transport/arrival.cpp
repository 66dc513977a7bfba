// SPDX-License-Identifier: MIT
// Implements arrival.h.
#include "transport/arrival.h"
#include "base/closer.h"
#include "base/faults.h"

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
        for (uint32_t i = 0; i < count; i++)
            foreign_descriptor_tame(arrival.fds[arrival.descriptors.count++]);
    }
}

// One packet costs less by the call for one.
int messages_receive(int fd, mmsghdr *messages, uint32_t room) {
    constexpr int kFlags = MSG_DONTWAIT | MSG_CMSG_CLOEXEC;
    if (fault_is_due(Fault::receive))
        return -1;
    if (room > 1)
        return recvmmsg(fd, messages, room, kFlags, nullptr);
    const ssize_t size = recvmsg(fd, &messages->msg_hdr, kFlags);
    messages->msg_len = size < 0 ? 0 : static_cast<unsigned>(size);
    return size < 0 ? -1 : 1;
}

} // namespace

void batch_unpack(Batch &batch, uint32_t index, Arrival &arrival) {
    msghdr &message = batch.messages[index].msg_hdr;
    descriptors_collect(message, arrival);
    arrival.packet = static_cast<const uint8_t *>(batch.parts[index].iov_base);
    arrival.size = batch.messages[index].msg_len;
    arrival.cut = (message.msg_flags & MSG_TRUNC) != 0;
    arrival.descriptors_lost = (message.msg_flags & MSG_CTRUNC) != 0;
}

uint32_t batch_receive(int fd, uint8_t *memory, Batch &batch, uint32_t room) {
    for (;;) {
        for (uint32_t i = 0; i < room; i++) {
            batch.parts[i] = {memory + i * kMaxPacket, kMaxPacket};
            batch.messages[i] = {};
            batch.messages[i].msg_hdr.msg_iov = &batch.parts[i];
            batch.messages[i].msg_hdr.msg_iovlen = 1;
            batch.messages[i].msg_hdr.msg_control = batch.control[i];
            batch.messages[i].msg_hdr.msg_controllen = sizeof batch.control[i];
        }
        const int count = messages_receive(fd, batch.messages, room);
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

bool packet_brings_descriptors(int fd) {
    msghdr message = {};
    return recvmsg(fd, &message, MSG_PEEK | MSG_DONTWAIT) >= 0 && (message.msg_flags & MSG_CTRUNC) != 0;
}

} // namespace bus

// SPDX-License-Identifier: MIT
// Packets as the kernel hands them over, several at a time.
#ifndef KEX_ARRIVAL_H
#define KEX_ARRIVAL_H

#include "base/limits.h"
#include "value/message.h"

#include <sys/socket.h>

namespace bus {

struct Arrival {
    const uint8_t *packet;
    uint32_t size;
    wire::Descriptors descriptors;
    int fds[kKernelDescriptors];
    bool cut;              // longer than a packet may be
    bool descriptors_lost; // the process's table was full
};

// Several packets from one system call: a sender whose queue is full is woken once for all of them. Not for the stack.
// What a single short packet touches lies together: a page of memory less for each process.
struct Batch {
    struct Place {
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * kKernelDescriptors)];
        uint8_t packet[kMaxPacket];
    };
    mmsghdr messages[kPacketsPerRead];
    iovec parts[kPacketsPerRead];
    Place places[kPacketsPerRead];
};

// What the process's table has room for. Descriptors that find none are closed by the kernel while it hands the packet
// over, which takes as long as their sender chose.
enum class Room : uint8_t {
    whole,  // all that the packets can bring
    unsure, // of one packet: it is looked at first, and stays in the socket when it brings more than fit
};

// How many packets came, at most `packets` (1 where it is unsure what fits); 0: nothing now, or with an errno other than
// 0 the end.
uint32_t batch_receive(int fd, Batch &batch, uint32_t packets, Room room);
// The same of one packet, where all fits, after sleeping until it comes: as long as socket_sleep_in_receive() has set,
// or until a signal comes.
uint32_t batch_await(int fd, Batch &batch);
// One of those that came.
void batch_unpack(Batch &batch, uint32_t index, Arrival &arrival);
// Whether the next packet does, which stays where it is. Not for sockets that ask for credentials.
bool packet_brings_descriptors(int fd);

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
#include "packet_socket.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <fmt/format.h>

#include "big_endian.h"

namespace voicectl {

namespace {

constexpr size_t kLeastIpHead = 20;
constexpr size_t kUdpHead = 8;
constexpr size_t kFragmentAt = 6, kProtocolAt = 9, kSourceAt = 12, kDestinationAt = 16;
constexpr uint16_t kFragmentOffset = 0x1FFF;

// Keeps what others send from being copied here at all.
bool filter_attach(int descriptor, PortRange ports) {
    const uint32_t first = ports.first, last = ports.last;
    // clang-format off
    std::array<sock_filter, 13> rows = {{
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, kProtocolAt),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_UDP, 0, 10),
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, kFragmentAt),
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, kFragmentOffset, 8, 0),
        BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 0), // the length of the head
        BPF_STMT(BPF_LD | BPF_H | BPF_IND, 0),  // the source's port
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, first, 0, 1),
        BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, last, 0, 3),
        BPF_STMT(BPF_LD | BPF_H | BPF_IND, 2), // the destination's
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, first, 0, 2),
        BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, last, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, UINT32_MAX),
        BPF_STMT(BPF_RET | BPF_K, 0),
    }};
    // clang-format on
    const sock_fprog program = {static_cast<unsigned short>(rows.size()), rows.data()};
    return setsockopt(descriptor, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0;
}

uint16_t half_at(std::string_view bytes, size_t at) {
    return static_cast<uint16_t>(big_number(bytes.substr(at, sizeof(uint16_t))));
}

uint64_t time_of(msghdr &message) {
    timespec came{};
    for (cmsghdr *note = CMSG_FIRSTHDR(&message); note != nullptr; note = CMSG_NXTHDR(&message, note))
        if (note->cmsg_level == SOL_SOCKET && note->cmsg_type == SCM_TIMESTAMPNS)
            std::memcpy(&came, CMSG_DATA(note), sizeof came);
    return static_cast<uint64_t>(came.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(came.tv_nsec);
}

} // namespace

bool datagram_read(std::string_view bytes, Datagram &datagram) {
    if (bytes.size() < kLeastIpHead || static_cast<uint8_t>(bytes[0]) >> 4 != 4)
        return false;
    const size_t head = (static_cast<uint8_t>(bytes[0]) & 0xF) * sizeof(uint32_t);
    if (head < kLeastIpHead || bytes.size() < head + kUdpHead || bytes[kProtocolAt] != IPPROTO_UDP ||
        (half_at(bytes, kFragmentAt) & kFragmentOffset) != 0)
        return false;
    const size_t length = half_at(bytes, head + 4);
    if (length < kUdpHead || length > bytes.size() - head)
        return false;
    datagram.source = big_number(bytes.substr(kSourceAt, sizeof(uint32_t)));
    datagram.destination = big_number(bytes.substr(kDestinationAt, sizeof(uint32_t)));
    datagram.source_port = half_at(bytes, head);
    datagram.destination_port = half_at(bytes, head + 2);
    datagram.payload = bytes.substr(head + kUdpHead, length - kUdpHead);
    return true;
}

PacketSocket::~PacketSocket() {
    if (descriptor_ >= 0)
        close(descriptor_);
}

std::string PacketSocket::open(PortRange ports) {
    // Not bound to a protocol before the filter stands: nothing else comes in meanwhile.
    descriptor_ = socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor_ < 0)
        return errno == EPERM || errno == EACCES ? "no right to see packets (CAP_NET_RAW)"
                                                 : fmt::format("packets cannot be seen: {}", std::strerror(errno));
    const int on = 1;
    setsockopt(descriptor_, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IP);
    if (filter_attach(descriptor_, ports) &&
        bind(descriptor_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return "";
    std::string why = fmt::format("packets cannot be seen: {}", std::strerror(errno));
    close(descriptor_);
    descriptor_ = -1;
    return why;
}

bool PacketSocket::next(Datagram &datagram) {
    for (;;) {
        alignas(cmsghdr) char notes[64];
        iovec room = {bytes_, sizeof bytes_};
        sockaddr_ll from{};
        msghdr message{};
        message.msg_name = &from;
        message.msg_namelen = sizeof from;
        message.msg_iov = &room;
        message.msg_iovlen = 1;
        message.msg_control = notes;
        message.msg_controllen = sizeof notes;
        const ssize_t size = recvmsg(descriptor_, &message, 0);
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0)
            return false;
        // On the loopback each packet goes out and comes in.
        const bool seen_twice = from.sll_hatype == ARPHRD_LOOPBACK && from.sll_pkttype == PACKET_OUTGOING;
        datagram.time_ns = time_of(message);
        if (!seen_twice && datagram_read({bytes_, static_cast<size_t>(size)}, datagram))
            return true;
    }
}

uint32_t PacketSocket::lost() {
    tpacket_stats counts{};
    socklen_t size = sizeof counts;
    return getsockopt(descriptor_, SOL_PACKET, PACKET_STATISTICS, &counts, &size) == 0 ? counts.tp_drops : 0;
}

} // namespace voicectl

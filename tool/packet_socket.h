// SPDX-License-Identifier: MIT
// The UDP packets of this machine on a range of ports, as the kernel sees them pass. Needs CAP_NET_RAW.
#ifndef VOICECTL_PACKET_SOCKET_H
#define VOICECTL_PACKET_SOCKET_H

#include <cstdint>
#include <string>
#include <string_view>

namespace voicectl {

struct PortRange {
    uint16_t first = 30000; // those of voice_application without a file of settings
    uint16_t last = 30199;
};

// What an IPv4 packet carried by UDP holds.
struct Datagram {
    uint64_t time_ns = 0; // since 1970
    uint32_t source = 0, destination = 0;
    uint16_t source_port = 0, destination_port = 0;
    std::string_view payload{}; // until the next one is read
};

// Takes the bytes of an IPv4 packet apart. False: it is none, or not whole.
bool datagram_read(std::string_view bytes, Datagram &datagram);

class PacketSocket {
public:
    PacketSocket() = default;
    ~PacketSocket();
    PacketSocket(const PacketSocket &) = delete;
    PacketSocket &operator=(const PacketSocket &) = delete;

    // A sentence why not; empty: open.
    std::string open(PortRange ports);
    bool is_open() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }

    // The next packet that is there now. Each one once, also those that the machine sends to itself.
    bool next(Datagram &datagram);
    // How many the kernel had no room for since this was asked last.
    uint32_t lost();

private:
    static constexpr size_t kMostBytes = 64 * 1024;
    int descriptor_ = -1;
    char bytes_[kMostBytes];
};

} // namespace voicectl

#endif

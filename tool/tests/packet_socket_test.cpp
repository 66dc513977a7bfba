// SPDX-License-Identifier: MIT
// IPv4 packets taken apart: whole ones, and everything that is none.
#include "packet_socket.h"

#include <gtest/gtest.h>

using namespace voicectl;

namespace {

// 127.0.0.1:30000 to 127.0.0.2:30002, "sound", with a head of 24 bytes.
const std::string kPacket =
    std::string("\x46\x00\x00\x25\x00\x00\x40\x00\x40\x11\x00\x00\x7F\x00\x00\x01\x7F\x00\x00\x02"
                "\x01\x01\x01\x00\x75\x30\x75\x32\x00\x0D\x00\x00sound",
                37);

TEST(Datagram, WholePacketHasAddressesPortsAndPayload) {
    Datagram read;
    const std::string padded = kPacket + "trailer"; // as short frames are
    ASSERT_TRUE(datagram_read(padded, read));
    EXPECT_EQ(read.source, 0x7F000001u);
    EXPECT_EQ(read.destination, 0x7F000002u);
    EXPECT_EQ(read.source_port, 30000);
    EXPECT_EQ(read.destination_port, 30002);
    EXPECT_EQ(read.payload, "sound");
}

TEST(Datagram, CutAnywhereItIsNone) {
    Datagram read;
    for (size_t size = 0; size < kPacket.size(); size++)
        EXPECT_FALSE(datagram_read(std::string(kPacket, 0, size), read)) << size;
}

TEST(Datagram, OtherPacketsAreNone) {
    const struct {
        size_t at;
        char byte;
        const char *what;
    } changes[] = {{0, '\x66', "version 6"},           {0, '\x44', "a head of 16 bytes"},
                   {0, '\x4F', "a head past the end"}, {9, '\x06', "TCP"},
                   {7, '\x01', "a later fragment"},    {29, '\x07', "shorter than its head"},
                   {29, '\x0E', "longer than it is"}};
    for (const auto &change : changes) {
        std::string packet = kPacket;
        packet[change.at] = change.byte;
        Datagram read;
        EXPECT_FALSE(datagram_read(packet, read)) << change.what;
    }
}

} // namespace

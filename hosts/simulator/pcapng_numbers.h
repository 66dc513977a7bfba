// SPDX-License-Identifier: MIT
/**
 * @file pcapng_numbers.h
 * Numbers of pcapng files (draft-ietf-opsawg-pcapng) that hosts write and voicectl writes and reads: of blocks, of their options,
 * and of the tags that stand in front of a message of an upper layer (Wireshark's "Export PDU").
 */
#pragma once

#include <stdint.h>

namespace pcapng_numbers {

enum BlockType : uint32_t { kSection = 0x0A0D0D0A, kInterface = 1, kNames = 4, kStatistics = 5, kPacket = 6 };
constexpr uint32_t kByteOrderMark = 0x1A2B3C4D; // as the machine that wrote the section has it
constexpr uint16_t kUpperLayer = 252;           // link type of messages of upper layers

// Codes of options; what one means depends on its block.
constexpr uint16_t kOptionEnd = 0, kComment = 1;
constexpr uint16_t kSystem = 3, kApplication = 4;                    // of a section
constexpr uint16_t kName = 2, kDescription = 3, kTimeResolution = 9; // of an interface
constexpr uint16_t kFlags = 2, kLost = 4;                            // of a packet
constexpr uint16_t kTotalReceived = 4, kTotalLost = 5;               // of statistics
constexpr uint32_t kDirection = 3, kInbound = 1, kOutbound = 2;      // of a packet's flags: their mask and its values
constexpr uint8_t kNanoseconds = 9; // a time resolution: of a second, as a power of ten

// Tags, in network order whatever the file's order is.
enum Tag : uint16_t {
    kTagEnd = 0,
    kDissector = 12,
    kSource = 20,      // IPv4; of IPv6 two more
    kDestination = 21, // likewise
    kPortType = 24,
    kSourcePort = 25,
    kDestinationPort = 26,
    kProtocol = 33,
};
constexpr uint32_t kTcp = 2, kUdp = 3; // types of ports

} // namespace pcapng_numbers

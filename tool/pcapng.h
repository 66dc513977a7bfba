// SPDX-License-Identifier: MIT
// The blocks of a pcapng file, each a text of bytes in this machine's order. A file is a section, its interfaces, then
// the others in any order; names must not stand before an interface, or the editors of Wireshark refuse the file.
#ifndef VOICECTL_PCAPNG_H
#define VOICECTL_PCAPNG_H

#include <cstdint>
#include <string>
#include <string_view>

#include "pcapng_numbers.h"

namespace voicectl::pcapng {

using namespace pcapng_numbers;

// Of one section that is read: each of them is kept in mind.
constexpr size_t kMostInterfaces = 1000;

std::string section(std::string_view application, std::string_view system);
// Times of its packets are in nanoseconds.
std::string interface(uint16_t link_type, std::string_view name, std::string_view description);
// The name of an IPv4 address.
std::string address_name(uint32_t address, std::string_view name);
// `lost`: packets that are missing in front of it; 0 takes no room, nor does an empty comment.
std::string packet(uint32_t interface, uint64_t time_ns, std::string_view bytes, uint64_t lost,
                   std::string_view comment);
// What an interface received and lost in all, at the end of the file.
std::string statistics(uint32_t interface, uint64_t time_ns, uint64_t received, uint64_t lost);

// Where a message of an upper layer comes from.
struct Origin {
    std::string_view dissector;   // that it is for, by its name in Wireshark
    std::string_view protocol;    // shown where that dissector is missing
    bool datagrams;               // UDP; else as if on a TCP connection
    uint32_t source, destination; // IPv4 addresses
    uint16_t source_port, destination_port;
};
// The tags, to be put in front of its bytes.
std::string origin_tags(const Origin &origin);
// The reverse: takes the tags in front of a message off. What they do not say is empty or 0; false: they are not whole.
bool origin_take(std::string_view &bytes, Origin &origin);

} // namespace voicectl::pcapng

#endif

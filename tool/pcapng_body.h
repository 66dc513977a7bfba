// SPDX-License-Identifier: MIT
// The bodies of pcapng blocks that are read: what stands between a block's type and sizes.
#ifndef VOICECTL_PCAPNG_BODY_H
#define VOICECTL_PCAPNG_BODY_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "pcapng.h"

namespace voicectl::pcapng {

// Bytes whose numbers have the byte order of their section. A number that does not stand there as a whole is 0.
class Body {
public:
    Body(std::string_view bytes, bool swapped) : bytes_(bytes), swapped_(swapped) {}

    std::string_view bytes() const { return bytes_; }
    size_t size() const { return bytes_.size(); }
    uint16_t half(size_t at) const;
    uint32_t word(size_t at) const;
    uint64_t wide(size_t at) const;
    // What follows; nothing, from its end on.
    Body from(size_t at) const;
    // As much of it as there is.
    Body first(size_t size) const { return {bytes_.substr(0, size), swapped_}; }

private:
    template <typename Number>
    Number number(size_t at) const;

    std::string_view bytes_;
    bool swapped_;
};

struct Option {
    uint16_t code;
    Body value;
};
// Takes the first of the options off. Nothing: it was the last one, or it is not whole.
std::optional<Option> option_take(Body &options);

// What the block of an interface says of its packets.
struct Interface {
    uint16_t link_type;
    uint64_t ticks; // of a second, in which their times are counted; 0: so many that nothing can be said of times
};
Interface interface_read(const Body &body);

// The block of a packet.
struct Packet {
    uint32_t interface; // its place among those of the section
    uint64_t time;      // in its interface's ticks
    std::string_view bytes;
    Body options;
};
// Nothing: it says that it has more bytes than it has.
std::optional<Packet> packet_read(const Body &body);
// Nanoseconds since 1970; 0 where nothing can be said.
uint64_t packet_time(const Packet &packet, const Interface &interface);

} // namespace voicectl::pcapng

#endif

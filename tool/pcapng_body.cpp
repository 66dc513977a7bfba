// SPDX-License-Identifier: MIT
#include "pcapng_body.h"

#include <algorithm>
#include <cstring>

namespace voicectl::pcapng {

namespace {

constexpr uint64_t kTicksUnlessSaid = 1'000'000;

// What fills whole words up.
size_t padded(size_t size) {
    return (size + 3) & ~size_t{3};
}

uint16_t turned(uint16_t number) {
    return __builtin_bswap16(number);
}
uint32_t turned(uint32_t number) {
    return __builtin_bswap32(number);
}
uint64_t turned(uint64_t number) {
    return __builtin_bswap64(number);
}

// By the byte of the option; 0: none that can be counted with.
uint64_t ticks_of(uint8_t code) {
    constexpr uint8_t kBinary = 0x80, kMostBinary = 32, kMostDecimal = 10;
    if ((code & kBinary) != 0)
        return (code & ~kBinary) <= kMostBinary ? uint64_t{1} << (code & ~kBinary) : 0;
    if (code > kMostDecimal)
        return 0;
    uint64_t ticks = 1;
    for (unsigned i = 0; i < code; ++i)
        ticks *= 10;
    return ticks;
}

} // namespace

template <typename Number>
Number Body::number(size_t at) const {
    Number number = 0;
    if (at <= size() && sizeof number <= size() - at)
        std::memcpy(&number, bytes_.data() + at, sizeof number);
    return swapped_ ? turned(number) : number;
}

uint16_t Body::half(size_t at) const {
    return number<uint16_t>(at);
}

uint32_t Body::word(size_t at) const {
    return number<uint32_t>(at);
}

uint64_t Body::wide(size_t at) const {
    return number<uint64_t>(at);
}

Body Body::from(size_t at) const {
    return {bytes_.substr(std::min(at, size())), swapped_};
}

std::optional<Option> option_take(Body &options) {
    constexpr size_t kHead = 4;
    const uint16_t code = options.half(0), length = options.half(2);
    if (options.size() < kHead || code == kOptionEnd || length > options.size() - kHead)
        return std::nullopt;
    const Option option = {code, options.from(kHead).first(length)};
    options = options.from(kHead + padded(length));
    return option;
}

Interface interface_read(const Body &body) {
    constexpr size_t kOptions = 8;
    Interface interface = {body.half(0), kTicksUnlessSaid};
    Body options = body.from(kOptions);
    while (const std::optional<Option> option = option_take(options))
        if (option->code == kTimeResolution && option->value.size() != 0)
            interface.ticks = ticks_of(static_cast<uint8_t>(option->value.bytes()[0]));
    return interface;
}

std::optional<Packet> packet_read(const Body &body) {
    constexpr size_t kTimeAt = 4, kLengthAt = 12, kBytesAt = 20;
    const uint32_t length = body.word(kLengthAt);
    if (body.size() < kBytesAt || length > body.size() - kBytesAt)
        return std::nullopt;
    return Packet{.interface = body.word(0),
                  .time = uint64_t{body.word(kTimeAt)} << 32 | body.word(kTimeAt + 4),
                  .bytes = body.bytes().substr(kBytesAt, length),
                  .options = body.from(kBytesAt + padded(length))};
}

uint64_t packet_time(const Packet &packet, const Interface &interface) {
    constexpr uint64_t kSecond = 1'000'000'000;
    if (interface.ticks == 0)
        return 0;
    return packet.time / interface.ticks * kSecond + packet.time % interface.ticks * kSecond / interface.ticks;
}

} // namespace voicectl::pcapng

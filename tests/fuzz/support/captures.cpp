// SPDX-License-Identifier: MIT
// Captures for what reads them: blocks of pcapng, and what stands in them.
#include "captures.h"

#include "captured_messages.h"
#include "require.h"

#include <iterator>
#include <sys/mman.h>
#include <unistd.h>

namespace fuzz {

namespace {

enum Block : uint32_t { kSection = 0x0A0D0D0A, kInterface = 1, kPacket = 6 };
constexpr uint16_t kUpperLayer = 252;

void block_add(NumberWriter &file, uint32_t kind, const std::string &body, uint32_t wrong = 0) {
    const auto size = static_cast<uint32_t>(12 + body.size());
    file.word(kind).word(size + wrong).raw(body).word(size);
}

void section_add(NumberWriter &file, bool is_big) {
    NumberWriter body(is_big);
    body.word(0x1A2B3C4D).half(1).half(0).word(UINT32_MAX).word(UINT32_MAX);
    block_add(file, kSection, body.bytes);
}

void options_add(Input &in, bool is_big, NumberWriter &to) {
    enum : uint16_t { kComment = 1, kFlags = 2, kLost = 4, kResolution = 9 };
    static constexpr uint16_t kCodes[] = {kComment, kFlags, kLost, kResolution};
    for (uint32_t left = in.below(4); left > 0; --left) {
        const uint8_t how = in.byte();
        const uint16_t code = how < 240 ? kCodes[how % std::size(kCodes)] : in.byte();
        NumberWriter value(is_big);
        if (code == kLost)
            value.word(is_big ? 0 : in.byte()).word(is_big ? in.byte() : 0); // a number of eight bytes
        else if (code == kFlags)
            value.word(in.byte());
        else if (code == kResolution)
            value.byte(in.byte());
        else
            value.raw(in.text());
        to.half(code).half(static_cast<uint16_t>(value.bytes.size())).raw(value.bytes).pad();
    }
    to.word(0);
}

void interface_add(Input &in, bool is_big, NumberWriter &file) {
    NumberWriter body(is_big);
    body.half(in.byte() < 224 ? kUpperLayer : in.half()).half(0).word(0);
    options_add(in, is_big, body);
    block_add(file, kInterface, body.bytes);
}

// The tags in front of a packet, which are big-endian in any file.
std::string tags(Input &in, const std::string &dissector) {
    enum : uint16_t { kDissector = 12, kSource = 20, kDestination, kPortType = 24, kSourcePort, kDestinationPort };
    const uint8_t how = in.byte();
    NumberWriter to(true);
    NumberWriter name(true);
    name.raw(dissector).pad();
    to.half(kDissector).half(static_cast<uint16_t>(name.bytes.size())).raw(name.bytes);
    constexpr uint32_t kLoopback = 0x7F000001, kUdp = 3;
    const uint32_t values[][2] = {{kSource, kLoopback},
                                  {kDestination, kLoopback + (how & 1)},
                                  {kPortType, how < 224 ? kUdp : how % 4U},
                                  {kSourcePort, 30'000U + (how & 2)},
                                  {kDestinationPort, 30'002U + (how & 4)}};
    for (const auto &[tag, value] : values)
        to.half(static_cast<uint16_t>(tag)).half(4).word(value);
    to.word(0);
    return to.bytes.substr(0, how >= 240 ? in.byte() : std::string::npos);
}

std::string rtp_packet(Input &in) {
    NumberWriter to(true);
    to.byte(in.byte() < 240 ? 0x80 : in.byte()).byte(in.byte()).half(in.byte());
    to.word(in.half()).word(in.below(3));
    return to.bytes + in.text();
}

void packet_add(Input &in, bool is_big, uint64_t &time, NumberWriter &file) {
    const uint8_t how = in.byte();
    const uint8_t step = in.byte();
    time = step < 250 ? time + step * uint64_t{10'000'000} : uint64_t{in.word()} * UINT32_MAX;
    static const char *const kDissectors[] = {"kexbus", "rtp", "rtcp"};
    const uint8_t what = how % 4;
    std::string bytes = tags(in, what < std::size(kDissectors) ? kDissectors[what] : in.text());
    bytes += what == 0 ? captured_message(in) : what == 1 ? rtp_packet(in) : in.text();
    const auto length = static_cast<uint32_t>(bytes.size());
    NumberWriter body(is_big);
    body.word(how >= 240 ? in.byte() : 0);
    body.word(static_cast<uint32_t>(time >> 32)).word(static_cast<uint32_t>(time));
    body.word(how >= 248 ? in.word() : length).word(length).raw(bytes).pad();
    if ((how & 8) != 0)
        options_add(in, is_big, body);
    block_add(file, kPacket, body.bytes);
}

} // namespace

Capture capture(Input &in, bool is_big) {
    constexpr unsigned kMostBlocks = 100;
    NumberWriter file(is_big);
    bool has_any_bytes = false;
    uint64_t time = uint64_t{1'700'000'000} * 1'000'000'000;
    if (in.byte() < 240) {
        section_add(file, is_big);
        NumberWriter body(is_big);
        body.half(kUpperLayer).half(0).word(0).half(9).half(1).raw(std::string("\x09\0\0\0", 4));
        block_add(file, kInterface, body.bytes);
    }
    for (unsigned i = 0; i < kMostBlocks && !in.is_empty(); ++i) {
        const uint8_t how = in.byte();
        if (how < 200) {
            packet_add(in, is_big, time, file);
        } else if (how < 225) {
            interface_add(in, is_big, file);
        } else if (how < 235) {
            section_add(file, is_big);
        } else if (how < 250) {
            NumberWriter body(is_big);
            const uint32_t kind = in.byte();
            const uint32_t wrong = how >= 245 ? in.byte() : 0;
            body.raw(in.text()).pad();
            block_add(file, kind, body.bytes, wrong);
            has_any_bytes = has_any_bytes || kind == kInterface || kind == kPacket || wrong != 0;
        } else {
            file.raw(in.text());
            has_any_bytes = true;
        }
    }
    return {file.bytes, has_any_bytes};
}

std::vector<std::string> pieces(Input &in, const std::string &file) {
    std::vector<std::string> all;
    size_t begin = 0;
    for (uint32_t left = in.below(32); left > 0 && begin < file.size(); --left) {
        const uint8_t size = in.byte();
        all.push_back(file.substr(begin, size < 250 ? size_t{1} + size : in.half() + size_t{1}));
        begin += all.back().size();
    }
    if (begin < file.size())
        all.push_back(file.substr(begin));
    return all;
}

int file_of(const std::string &bytes) {
    const int descriptor = memfd_create("capture", MFD_CLOEXEC);
    require(write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "a file is written");
    lseek(descriptor, 0, SEEK_SET);
    return descriptor;
}

std::string path_of(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

} // namespace fuzz

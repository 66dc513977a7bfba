// SPDX-License-Identifier: MIT
// Reads pcapng, as far as captures of the bus and of sound need it.
#include "capture_reader.h"

#include <cerrno>
#include <cstring>

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include "pcapng.h"
#include "run_limit.h"

namespace voicectl {

namespace {

enum ReadBlock : uint32_t { kReadSection = 0x0A0D0D0A, kReadInterface = 1, kReadPacket = 6 };
constexpr uint32_t kOrderMark = 0x1A2B3C4D, kOrderMarkSwapped = 0x4D3C2B1A;
constexpr size_t kBlockFrame = 12; // its type and, at both ends, its size
constexpr size_t kBody = 8;        // where a block's body begins
constexpr size_t kReadAtATime = 64 * 1024;
constexpr std::chrono::seconds kRest{1};
constexpr uint64_t kNsPerSecond = 1'000'000'000;

// What something that is no pcapng may be, and what helps.
std::string stranger(uint32_t first) {
    constexpr uint32_t kClassic = 0xA1B2C3D4, kClassicFine = 0xA1B23C4D;
    constexpr uint8_t kGzip[] = {0x1F, 0x8B};
    for (const uint32_t classic : {kClassic, kClassicFine})
        if (first == classic || first == __builtin_bswap32(classic))
            return "a classic pcap file: editcap -F pcapng makes one of it that can be read";
    if (std::memcmp(&first, kGzip, sizeof kGzip) == 0)
        return "compressed: gunzip makes one of it that can be read";
    return "no capture: voicectl capture -o FILE makes one";
}

// Ticks of a second by the option's byte; 0: none that can be counted with.
uint64_t ticks_of(uint8_t code) {
    constexpr uint8_t kBinary = 0x80, kMostBinary = 32, kMostDecimal = 10;
    if ((code & kBinary) != 0)
        return (code & ~kBinary) <= kMostBinary ? uint64_t{1} << (code & ~kBinary) : 0;
    uint64_t ticks = 1;
    for (unsigned i = 0; i < code; ++i)
        ticks *= 10;
    return code <= kMostDecimal ? ticks : 0;
}

} // namespace

uint32_t CaptureReader::word(size_t at) const {
    uint32_t value = 0;
    std::memcpy(&value, input_.data() + begin_ + at, sizeof value);
    return swapped_ ? __builtin_bswap32(value) : value;
}

uint16_t CaptureReader::half(size_t at) const {
    uint16_t value = 0;
    std::memcpy(&value, input_.data() + begin_ + at, sizeof value);
    return swapped_ ? __builtin_bswap16(value) : value;
}

bool CaptureReader::stop(const std::string &fault) {
    fault_ = fault;
    return false;
}

// Until something is there. False: an interrupt has ended it.
bool CaptureReader::input_wait() {
    using std::chrono::milliseconds;
    if (RunLimit::interrupted() && !enough_)
        enough_ = std::chrono::steady_clock::now() + kRest;
    const auto left = enough_ ? std::chrono::duration_cast<milliseconds>(*enough_ - std::chrono::steady_clock::now())
                              : milliseconds(-1);
    if (enough_ && left.count() <= 0)
        return false;
    pollfd input = {descriptor_, POLLIN, 0};
    return poll(&input, 1, static_cast<int>(left.count())) >= 0 || errno != EINTR || input_wait();
}

// Whether so many bytes of the block at hand are there. What they push out is what stood before it.
bool CaptureReader::bytes_have(size_t size) {
    while (input_.size() - begin_ < size) {
        if (begin_ > 0) {
            input_.erase(input_.begin(), input_.begin() + static_cast<ptrdiff_t>(begin_));
            begin_ = 0;
        }
        const size_t there = input_.size();
        input_.resize(there + kReadAtATime);
        ssize_t came = -1;
        const bool waited = input_wait();
        if (waited)
            came = read(descriptor_, input_.data() + there, kReadAtATime);
        const int error = errno;
        input_.resize(there + static_cast<size_t>(came > 0 ? came : 0));
        if (waited && came < 0 && error == EINTR)
            continue;
        if (waited && came < 0)
            return stop(fmt::format("cannot be read: {}", std::strerror(error)));
        if (came <= 0)
            return false;
    }
    return true;
}

bool CaptureReader::section_take() {
    const uint32_t mark = word(kBody);
    if (mark == kOrderMarkSwapped)
        swapped_ = !swapped_;
    else if (mark != kOrderMark)
        return stop(fmt::format("no section begins at byte {}", at_));
    interfaces_.clear();
    return true;
}

// The next whole block. False: there is none, and `fault_` may say why.
bool CaptureReader::block_next(uint32_t &type) {
    begin_ += size_;
    at_ += size_;
    size_ = 0;
    if (!bytes_have(kBlockFrame)) {
        if (at_ == 0 && fault_.empty() && input_.empty())
            return stop("empty");
        if (at_ == 0 && fault_.empty() && (input_.size() < 4 || word(0) != kReadSection))
            return stop(stranger(input_.size() < 4 ? 0 : word(0)));
        if (fault_.empty() && input_.size() > begin_)
            stop(fmt::format("cut off in the block at byte {}", at_));
        return false;
    }
    type = word(0);
    if (at_ == 0 && type != kReadSection)
        return stop(stranger(type));
    if (type == kReadSection && !section_take())
        return false;
    const uint32_t size = word(4);
    if (size < kBlockFrame || size % 4 != 0 || size > kMostBlockBytes)
        return stop(fmt::format("the block at byte {} says it has {} bytes", at_, size));
    if (!bytes_have(size))
        return fault_.empty() ? stop(fmt::format("cut off in the block at byte {}", at_)) : false;
    if (word(size - 4) != size)
        return stop(fmt::format("the block at byte {} says two sizes, {} and {}", at_, size, word(size - 4)));
    size_ = size;
    return true;
}

void CaptureReader::interface_take() {
    constexpr size_t kOptions = kBody + 8;
    constexpr uint16_t kResolution = 9;
    if (interfaces_.size() == pcapng::kMostInterfaces) {
        stop(fmt::format("more than {} interfaces", pcapng::kMostInterfaces));
        return;
    }
    Interface interface { .link_type = half(kBody) };
    for (size_t at = kOptions; at + 4 <= size_ - 4;) {
        const uint16_t code = half(at), length = half(at + 2);
        at += 4;
        if (code == 0 || length > size_ - 4 - at)
            break;
        if (code == kResolution && length >= 1)
            interface.ticks = ticks_of(static_cast<uint8_t>(input_[begin_ + at]));
        at += (length + size_t{3}) & ~size_t{3};
    }
    interfaces_.push_back(interface);
}

uint64_t CaptureReader::time_of(const Interface &interface) const {
    const uint64_t time = uint64_t{word(kBody + 4)} << 32 | word(kBody + 8);
    if (interface.ticks == 0)
        return 0;
    return time / interface.ticks * kNsPerSecond + time % interface.ticks * kNsPerSecond / interface.ticks;
}

// The first comment among the options from there on.
std::string_view CaptureReader::comment_at(size_t at) const {
    constexpr uint16_t kComment = 1;
    while (at + 4 <= size_ - 4) {
        const uint16_t code = half(at), length = half(at + 2);
        at += 4;
        if (code == 0 || length > size_ - 4 - at)
            break;
        if (code == kComment)
            return {input_.data() + begin_ + at, length};
        at += (length + size_t{3}) & ~size_t{3};
    }
    return {};
}

// Always false: it is counted.
bool CaptureReader::broken_note() {
    ++broken_;
    return false;
}

// False: a packet that is none of these.
bool CaptureReader::packet_take(CapturedPacket &packet) {
    constexpr size_t kBytes = kBody + 20;
    if (size_ < kBytes + 4 || word(kBody) >= interfaces_.size())
        return broken_note();
    const Interface &interface = interfaces_[word(kBody)];
    if (interface.link_type != pcapng::kUpperLayer) {
        if (strange_++ == 0)
            strange_link_type_ = interface.link_type;
        return false;
    }
    const uint32_t length = word(kBody + 12);
    if (length > size_ - kBytes - 4)
        return broken_note();
    std::string_view bytes(input_.data() + begin_ + kBytes, length);
    pcapng::Origin origin{};
    if (!pcapng::origin_take(bytes, origin))
        return broken_note();
    packet = {.time_ns = time_of(interface),
              .dissector = origin.dissector,
              .source = origin.source,
              .destination = origin.destination,
              .source_port = origin.source_port,
              .destination_port = origin.destination_port,
              .bytes = bytes,
              .comment = comment_at(kBytes + ((length + size_t{3}) & ~size_t{3}))};
    return true;
}

bool CaptureReader::next(CapturedPacket &packet) {
    uint32_t type = 0;
    while (fault_.empty() && block_next(type)) {
        if (type == kReadInterface && size_ >= kBlockFrame + 8)
            interface_take();
        else if (type == kReadPacket && packet_take(packet))
            return true;
    }
    return false;
}

} // namespace voicectl

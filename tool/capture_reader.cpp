// SPDX-License-Identifier: MIT
// Reads pcapng, as far as captures of the bus and of sound need it.
#include "capture_reader.h"

#include <cerrno>
#include <cstring>

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include "pcapng_body.h"
#include "run_limit.h"

namespace voicectl {

namespace {

constexpr size_t kBlockFrame = 12; // its type and, at both ends, its size
constexpr size_t kBody = 8;        // where a block's body begins
constexpr size_t kBlockTail = 4;   // its size once more
constexpr size_t kReadAtATime = 64 * 1024;
constexpr std::chrono::seconds kRest{1};

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

// The first comment among a packet's options.
std::string_view comment_in(pcapng::Body options) {
    while (const std::optional<pcapng::Option> option = pcapng::option_take(options))
        if (option->code == pcapng::kComment)
            return option->value.bytes();
    return {};
}

} // namespace

// What is there of the block at hand.
pcapng::Body CaptureReader::block() const {
    return {std::string_view(input_.data(), input_.size()).substr(begin_), swapped_};
}

// What stands in it, once it is whole.
pcapng::Body CaptureReader::body() const {
    return block().first(size_ - kBlockTail).from(kBody);
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
    const uint32_t mark = block().word(kBody);
    if (mark == __builtin_bswap32(pcapng::kByteOrderMark))
        swapped_ = !swapped_;
    else if (mark != pcapng::kByteOrderMark)
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
        if (at_ == 0 && fault_.empty() && block().word(0) != pcapng::kSection)
            return stop(stranger(block().word(0)));
        if (fault_.empty() && input_.size() > begin_)
            stop(fmt::format("cut off in the block at byte {}", at_));
        return false;
    }
    type = block().word(0);
    if (at_ == 0 && type != pcapng::kSection)
        return stop(stranger(type));
    if (type == pcapng::kSection && !section_take())
        return false;
    const uint32_t size = block().word(4);
    if (size < kBlockFrame || size % 4 != 0 || size > kMostBlockBytes)
        return stop(fmt::format("the block at byte {} says it has {} bytes", at_, size));
    if (!bytes_have(size))
        return fault_.empty() ? stop(fmt::format("cut off in the block at byte {}", at_)) : false;
    const uint32_t again = block().word(size - kBlockTail);
    if (again != size)
        return stop(fmt::format("the block at byte {} says two sizes, {} and {}", at_, size, again));
    size_ = size;
    return true;
}

void CaptureReader::interface_take() {
    if (interfaces_.size() == pcapng::kMostInterfaces)
        stop(fmt::format("more than {} interfaces", pcapng::kMostInterfaces));
    else
        interfaces_.push_back(pcapng::interface_read(body()));
}

// Always false: it is counted.
bool CaptureReader::broken_note() {
    ++broken_;
    return false;
}

// False: a packet that is none of these.
bool CaptureReader::packet_take(CapturedPacket &packet) {
    const std::optional<pcapng::Packet> read = pcapng::packet_read(body());
    if (!read || read->interface >= interfaces_.size())
        return broken_note();
    const pcapng::Interface &interface = interfaces_[read->interface];
    if (interface.link_type != pcapng::kUpperLayer) {
        if (strange_++ == 0)
            strange_link_type_ = interface.link_type;
        return false;
    }
    std::string_view bytes = read->bytes;
    pcapng::Origin origin{};
    if (!pcapng::origin_take(bytes, origin))
        return broken_note();
    packet = {.time_ns = pcapng::packet_time(*read, interface),
              .dissector = origin.dissector,
              .source = origin.source,
              .destination = origin.destination,
              .source_port = origin.source_port,
              .destination_port = origin.destination_port,
              .bytes = bytes,
              .comment = comment_in(read->options)};
    return true;
}

bool CaptureReader::next(CapturedPacket &packet) {
    uint32_t type = 0;
    while (fault_.empty() && block_next(type)) {
        if (type == pcapng::kInterface && size_ >= kBlockFrame + 8)
            interface_take();
        else if (type == pcapng::kPacket && packet_take(packet))
            return true;
    }
    return false;
}

} // namespace voicectl

// SPDX-License-Identifier: MIT
// Reads a file of RTP packets that a host writes, while it grows.
#include "media_file_reader.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "pcapng.h"

namespace voicectl {

namespace {

enum FileBlock : uint32_t { kFileSection = 0x0A0D0D0A, kFileInterface = 1, kFilePacket = 6 };
constexpr uint32_t kFileOrder = 0x1A2B3C4D;
constexpr size_t kBlockHead = 8, kBlockTail = 4; // type and size; the size once more
constexpr size_t kMostFileBlock = 65'536;        // one packet of 1500 bytes has far less
constexpr uint64_t kSecondNs = 1'000'000'000;

// Takes the tags in front of a packet off. False: it is no RTP over UDP and IPv4.
bool sound_take(std::string_view bytes, FilePacket &packet) {
    pcapng::Origin origin{};
    if (!pcapng::origin_take(bytes, origin))
        return false;
    packet.control = origin.dissector == "rtcp";
    packet.source = origin.source;
    packet.destination = origin.destination;
    packet.source_port = origin.source_port;
    packet.destination_port = origin.destination_port;
    packet.bytes = bytes;
    return (packet.control || origin.dissector == "rtp") && origin.datagrams && origin.source != 0 &&
           origin.destination != 0;
}

} // namespace

MediaFileReader::~MediaFileReader() {
    close_file();
}

void MediaFileReader::close_file() {
    if (descriptor_ >= 0)
        close(descriptor_);
    descriptor_ = -1;
    read_ = 0;
    bytes_.clear();
    taken_ = 0;
    ticks_.clear();
    began_ = false;
}

// Always false: it cannot go on.
bool MediaFileReader::stop(const std::string &fault) {
    fault_ = fault;
    close_file();
    return false;
}

uint32_t MediaFileReader::word(std::string_view bytes, size_t at) const {
    uint32_t value = 0;
    if (at + sizeof value <= bytes.size())
        std::memcpy(&value, bytes.data() + at, sizeof value);
    return swapped_ ? __builtin_bswap32(value) : value;
}

uint64_t MediaFileReader::count(std::string_view bytes) const {
    uint64_t value = 0;
    if (sizeof value <= bytes.size())
        std::memcpy(&value, bytes.data(), sizeof value);
    return swapped_ ? __builtin_bswap64(value) : value;
}

uint16_t MediaFileReader::half(std::string_view bytes, size_t at) const {
    uint16_t value = 0;
    if (at + sizeof value <= bytes.size())
        std::memcpy(&value, bytes.data() + at, sizeof value);
    return swapped_ ? __builtin_bswap16(value) : value;
}

// A host whose disk is full takes back what it wrote of a block: what has been read of that one is read anew. False: the file
// is shorter than its whole blocks were.
bool MediaFileReader::rest_drop(off_t size) {
    const off_t whole = read_ - static_cast<off_t>(bytes_.size() - taken_);
    if (size < whole || lseek(descriptor_, whole, SEEK_SET) != whole)
        return false;
    read_ = whole;
    bytes_.clear();
    taken_ = 0;
    return true;
}

void MediaFileReader::look() {
    struct stat found {};
    if (!fault_.empty() || stat(path_.c_str(), &found) != 0)
        return; // its host may start later, or begin a new one
    const bool same = descriptor_ >= 0 && found.st_dev == device_ && found.st_ino == inode_;
    if (same && (found.st_size >= read_ || rest_drop(found.st_size)))
        return;
    close_file();
    if (!S_ISREG(found.st_mode)) {
        stop("is no file");
        return;
    }
    descriptor_ = open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor_ < 0) {
        stop(fmt::format("cannot be read: {}", std::strerror(errno)));
        return;
    }
    device_ = found.st_dev;
    inode_ = found.st_ino;
}

bool MediaFileReader::is_same(int descriptor) const {
    struct stat found {};
    return descriptor_ >= 0 && fstat(descriptor, &found) == 0 && found.st_dev == device_ && found.st_ino == inode_;
}

// Whether there was more in the file.
bool MediaFileReader::more_read() {
    std::array<char, 16'384> part{};
    bytes_.erase(0, taken_);
    taken_ = 0;
    const ssize_t size = descriptor_ < 0 ? 0 : read(descriptor_, part.data(), part.size());
    if (size < 0 && errno != EINTR && errno != EAGAIN)
        stop(fmt::format("cannot be read: {}", std::strerror(errno)));
    if (size <= 0)
        return false;
    bytes_.append(part.data(), static_cast<size_t>(size));
    read_ += size;
    return true;
}

// What begins a section says which byte order it has. False: it is none.
bool MediaFileReader::section_take(std::string_view block) {
    if (word(block, kBlockHead) != kFileOrder)
        swapped_ = !swapped_;
    began_ = word(block, kBlockHead) == kFileOrder;
    return began_;
}

// False: no whole block is there, or `fault_` says what stands there instead.
bool MediaFileReader::block_next(uint32_t &type, std::string_view &body) {
    do {
        const std::string_view rest = std::string_view(bytes_).substr(taken_);
        if (rest.size() < kBlockHead + sizeof kFileOrder)
            continue;
        type = word(rest, 0); // that of a section reads the same in both orders
        if (type == kFileSection ? !section_take(rest) : !began_)
            return stop("is no pcapng");
        const size_t size = word(rest, 4);
        if (size % 4 != 0 || size < kBlockHead + kBlockTail || size > kMostFileBlock)
            return stop(fmt::format("has a broken block at byte {}", read_ - static_cast<off_t>(rest.size())));
        if (rest.size() < size)
            continue;
        body = rest.substr(kBlockHead, size - kBlockHead - kBlockTail);
        taken_ += size;
        return true;
    } while (more_read());
    return false;
}

void MediaFileReader::interface_take(std::string_view body) {
    constexpr uint16_t kResolution = 9;
    constexpr uint8_t kMostDigits = 9;
    if (ticks_.size() == pcapng::kMostInterfaces) {
        stop(fmt::format("has more than {} interfaces", pcapng::kMostInterfaces));
        return;
    }
    uint64_t ticks = 1'000'000;
    for (size_t at = 8; at + 4 <= body.size();) {
        const uint16_t code = half(body, at), length = half(body, at + 2);
        at += 4;
        if (code == 0 || length > body.size() - at)
            break;
        if (code == kResolution && length >= 1) {
            const auto digits = static_cast<uint8_t>(body[at]);
            ticks = digits <= kMostDigits ? 1 : 0; // others are not written by any host
            for (unsigned i = 0; i < digits && ticks != 0; ++i)
                ticks *= 10;
        }
        at += (length + size_t{3}) & ~size_t{3};
    }
    ticks_.push_back(half(body, 0) == pcapng::kUpperLayer ? ticks : 0);
}

void MediaFileReader::options_take(std::string_view options, FilePacket &packet) const {
    enum : uint16_t { kEnd = 0, kComment = 1, kFlags = 2, kLost = 4 };
    constexpr uint32_t kDirection = 3, kOutbound = 2;
    while (options.size() >= 4) {
        const uint16_t code = half(options, 0), length = half(options, 2);
        options.remove_prefix(4);
        if (code == kEnd || length > options.size())
            return;
        const std::string_view value = options.substr(0, length);
        if (code == kComment)
            packet.comment = value;
        else if (code == kFlags)
            packet.sent = (word(value, 0) & kDirection) == kOutbound;
        else if (code == kLost && length == sizeof(uint64_t))
            packet.lost = count(value);
        options.remove_prefix(std::min((length + size_t{3}) & ~size_t{3}, options.size()));
    }
}

std::optional<FilePacket> MediaFileReader::packet_take(std::string_view body) {
    constexpr size_t kBytes = 20;
    const uint32_t interface = word(body, 0), length = word(body, 12);
    if (body.size() < kBytes || interface >= ticks_.size() || ticks_[interface] == 0 || length > body.size() - kBytes) {
        ++strange_;
        return std::nullopt;
    }
    FilePacket packet;
    const uint64_t time = uint64_t{word(body, 4)} << 32 | word(body, 8), ticks = ticks_[interface];
    packet.time_ns = time / ticks * kSecondNs + time % ticks * (kSecondNs / ticks);
    const size_t end = kBytes + ((length + size_t{3}) & ~size_t{3});
    if (end < body.size())
        options_take(body.substr(end), packet);
    if (sound_take(body.substr(kBytes, length), packet))
        return packet;
    ++strange_;
    return std::nullopt;
}

std::optional<FilePacket> MediaFileReader::next(int &blocks) {
    uint32_t type = 0;
    std::string_view body;
    while (blocks > 0 && fault_.empty() && descriptor_ >= 0 && block_next(type, body)) {
        --blocks;
        if (type == kFileSection)
            ticks_.clear();
        else if (type == kFileInterface)
            interface_take(body);
        else if (type == kFilePacket)
            if (const std::optional<FilePacket> packet = packet_take(body))
                return packet;
    }
    return std::nullopt;
}

} // namespace voicectl

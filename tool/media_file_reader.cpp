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

namespace voicectl {

namespace {

constexpr size_t kBlockHead = 8, kBlockTail = 4; // type and size; the size once more
constexpr size_t kMostFileBlock = 65'536;        // one packet of 1500 bytes has far less

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

// Whether an interface is of sound that hosts write, with times.
bool is_readable(const pcapng::Interface &interface) {
    return interface.link_type == pcapng::kUpperLayer && interface.ticks != 0;
}

void options_take(pcapng::Body options, FilePacket &packet) {
    while (const std::optional<pcapng::Option> option = pcapng::option_take(options)) {
        const pcapng::Body &value = option->value;
        if (option->code == pcapng::kComment)
            packet.comment = value.bytes();
        else if (option->code == pcapng::kFlags)
            packet.sent = (value.word(0) & pcapng::kDirection) == pcapng::kOutbound;
        else if (option->code == pcapng::kLost && value.size() == sizeof packet.lost)
            packet.lost = value.wide(0);
    }
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
    interfaces_.clear();
    began_ = false;
}

// Always false: it cannot go on.
bool MediaFileReader::stop(const std::string &fault) {
    fault_ = fault;
    close_file();
    return false;
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
    const uint32_t mark = pcapng::Body(block, swapped_).word(kBlockHead);
    if (mark == __builtin_bswap32(pcapng::kByteOrderMark))
        swapped_ = !swapped_;
    began_ = mark == pcapng::kByteOrderMark || mark == __builtin_bswap32(pcapng::kByteOrderMark);
    return began_;
}

// Empty: no whole block is there, or `fault_` says what stands there instead.
std::optional<pcapng::Body> MediaFileReader::block_next(uint32_t &type) {
    do {
        const std::string_view rest = std::string_view(bytes_).substr(taken_);
        if (rest.size() < kBlockHead + sizeof pcapng::kByteOrderMark)
            continue;
        type = pcapng::Body(rest, swapped_).word(0); // that of a section reads the same in both orders
        if (type == pcapng::kSection ? !section_take(rest) : !began_) {
            stop("is no pcapng");
            return std::nullopt;
        }
        const size_t size = pcapng::Body(rest, swapped_).word(4);
        if (size % 4 != 0 || size < kBlockHead + kBlockTail || size > kMostFileBlock) {
            stop(fmt::format("has a broken block at byte {}", read_ - static_cast<off_t>(rest.size())));
            return std::nullopt;
        }
        if (rest.size() < size)
            continue;
        taken_ += size;
        return pcapng::Body(rest.substr(kBlockHead, size - kBlockHead - kBlockTail), swapped_);
    } while (more_read());
    return std::nullopt;
}

void MediaFileReader::interface_take(const pcapng::Body &body) {
    if (interfaces_.size() == pcapng::kMostInterfaces)
        stop(fmt::format("has more than {} interfaces", pcapng::kMostInterfaces));
    else
        interfaces_.push_back(pcapng::interface_read(body));
}

std::optional<FilePacket> MediaFileReader::packet_take(const pcapng::Body &body) {
    const std::optional<pcapng::Packet> read = pcapng::packet_read(body);
    FilePacket packet;
    if (!read || read->interface >= interfaces_.size() || !is_readable(interfaces_[read->interface]) ||
        !sound_take(read->bytes, packet)) {
        ++strange_;
        return std::nullopt;
    }
    packet.time_ns = pcapng::packet_time(*read, interfaces_[read->interface]);
    options_take(read->options, packet);
    return packet;
}

std::optional<FilePacket> MediaFileReader::next(int &blocks) {
    uint32_t type = 0;
    while (blocks > 0 && fault_.empty() && descriptor_ >= 0) {
        const std::optional<pcapng::Body> body = block_next(type);
        if (!body)
            break;
        --blocks;
        if (type == pcapng::kSection)
            interfaces_.clear();
        else if (type == pcapng::kInterface)
            interface_take(*body);
        else if (type == pcapng::kPacket)
            if (const std::optional<FilePacket> packet = packet_take(*body))
                return packet;
    }
    return std::nullopt;
}

} // namespace voicectl

// SPDX-License-Identifier: MIT
// Implements raw_peer.h.
#include "raw_peer.h"

#include <bit>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace support {

namespace {

constexpr size_t kSizeAt = 12;
constexpr size_t kDescriptorsAt = 16;
constexpr size_t kRoom = 256 * 1024;

uint32_t word_at(const std::string &bytes, size_t at) {
    uint32_t word = 0;
    if (bytes.size() >= at + sizeof word)
        memcpy(&word, bytes.data() + at, sizeof word);
    return word;
}

void word_put(std::string &bytes, size_t at, uint32_t word) {
    if (bytes.size() >= at + sizeof word)
        memcpy(bytes.data() + at, &word, sizeof word);
}

} // namespace

Packet::Packet(uint8_t kind, uint32_t serial, uint32_t flags) {
    byte('k').byte(2).byte(std::endian::native == std::endian::little ? 'l' : 'B').byte(kind);
    word(serial).word(flags).word(0).word(0);
}

Packet &Packet::byte(uint8_t value) {
    return raw(std::string(1, static_cast<char>(value)));
}

Packet &Packet::half(uint16_t value) {
    return raw({reinterpret_cast<const char *>(&value), sizeof value});
}
Packet &Packet::word(uint32_t value) {
    return raw({reinterpret_cast<const char *>(&value), sizeof value});
}
Packet &Packet::text(const std::string &value) {
    return word(static_cast<uint32_t>(value.size())).raw(value);
}

Packet &Packet::descriptor_list(uint32_t count) {
    byte(13).word(count);
    for (uint32_t i = 0; i < count; i++)
        byte(18).word(i).word(0);
    return *this;
}

Packet &Packet::raw(const std::string &bytes) {
    bytes_ += bytes;
    return size(static_cast<uint32_t>(bytes_.size()));
}

Packet &Packet::size(uint32_t value) {
    word_put(bytes_, kSizeAt, value);
    return *this;
}

Packet &Packet::descriptors(uint32_t value) {
    word_put(bytes_, kDescriptorsAt, value);
    return *this;
}

Packet &Packet::set(size_t at, uint8_t value) {
    bytes_.at(at) = static_cast<char>(value);
    return *this;
}

std::string body_of(const Packet &packet) {
    return packet.bytes().substr(kHeadSize);
}

std::string together(const std::vector<Packet> &messages) {
    std::string bytes;
    for (const Packet &message : messages)
        bytes += message.bytes();
    return bytes;
}

std::vector<std::string> messages_of(const std::string &packet) {
    std::vector<std::string> messages;
    for (size_t at = 0; at < packet.size();) {
        const size_t size = word_at(packet.substr(at, kHeadSize), kSizeAt);
        const bool is_message = size >= kHeadSize && size <= packet.size() - at;
        messages.push_back(packet.substr(at, is_message ? size : std::string::npos));
        at += messages.back().size();
    }
    return messages;
}

Packet hello(const std::string &name) {
    return Packet(kHello).text(name);
}

Packet call(uint32_t serial, const std::string &path, const std::string &function) {
    return Packet(kCall, serial).text(path).text(function).byte(0);
}

RawPeer::RawPeer(const std::string &path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd_ >= 0 && connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        close();
    int room = static_cast<int>(kRoom);
    setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
}

RawPeer::~RawPeer() {
    close();
}

void RawPeer::close() {
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
}

bool RawPeer::send(const std::string &bytes, const std::vector<int> &fds) {
    iovec part = {const_cast<char *>(bytes.data()), bytes.size()};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    std::vector<char> control(CMSG_SPACE(sizeof(int) * fds.size()));
    if (!fds.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr *head = CMSG_FIRSTHDR(&message);
        head->cmsg_level = SOL_SOCKET;
        head->cmsg_type = SCM_RIGHTS;
        head->cmsg_len = CMSG_LEN(sizeof(int) * fds.size());
        memcpy(CMSG_DATA(head), fds.data(), sizeof(int) * fds.size());
    }
    return sendmsg(fd_, &message, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

bool RawPeer::send(Packet packet, const std::vector<int> &fds) {
    return send(packet.descriptors(static_cast<uint32_t>(fds.size())).bytes(), fds);
}

std::optional<std::string> RawPeer::receive() {
    if (received_.empty()) {
        const std::optional<std::string> packet = receive_packet();
        if (!packet || packet->empty())
            return packet;
        for (const std::string &message : messages_of(*packet))
            received_.push_back(message);
    }
    const std::string message = received_.front();
    received_.pop_front();
    return message;
}

std::optional<std::string> RawPeer::receive_packet() {
    std::string bytes(kRoom, '\0');
    for (;;) {
        ssize_t size = recv(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (size >= 0) {
            bytes.resize(static_cast<size_t>(size));
            return bytes;
        }
        if (errno != ECONNRESET && errno != EINTR)
            return std::nullopt;
    }
}

std::vector<std::string> RawPeer::receive_all() {
    std::vector<std::string> messages;
    for (auto message = receive(); message && !message->empty(); message = receive())
        messages.push_back(*message);
    return messages;
}

std::string RawPeer::refusal() {
    for (const std::string &packet : receive_all()) {
        if (kind_of(packet) == kRefused)
            return text_of(packet);
    }
    return "";
}

bool RawPeer::is_closed() {
    auto message = receive();
    while (message && !message->empty())
        message = receive();
    return message.has_value();
}

uint8_t kind_of(const std::string &packet) {
    return static_cast<uint8_t>(packet.at(3));
}

uint32_t serial_of(const std::string &packet) {
    return word_at(packet, 4);
}

uint32_t descriptors_of(const std::string &packet) {
    return word_at(packet, 16);
}

std::string text_of(const std::string &packet) {
    return packet.substr(kHeadSize + sizeof(uint32_t), word_at(packet, kHeadSize));
}

} // namespace support

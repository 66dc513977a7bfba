// SPDX-License-Identifier: MIT
// A peer that speaks the bus's packets without the bus's code: for what no well-behaved peer would send. The bytes are
// those of the drawing in bus/README.md.
#ifndef BUS_TESTS_RAW_PEER_H
#define BUS_TESTS_RAW_PEER_H

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace support {

constexpr size_t kHeadSize = 20;

// Builds the bytes of a packet of one message: `Packet(2, 7).text("Probe").text("run").byte(0)`. The head says how long
// it is; how many descriptors it has, once it is sent with them.
class Packet {
public:
    explicit Packet(uint8_t kind, uint32_t serial = 0, uint32_t flags = 0);
    Packet &byte(uint8_t value);
    Packet &half(uint16_t value);
    Packet &word(uint32_t value);
    Packet &text(const std::string &value);
    Packet &raw(const std::string &bytes);
    Packet &descriptor_list(uint32_t count); // a value: the list of the first so many descriptors
    Packet &set(size_t at, uint8_t value);   // overwrites a byte
    Packet &size(uint32_t value);            // what the head says, until something is added
    Packet &descriptors(uint32_t value);     // the same
    const std::string &bytes() const { return bytes_; }

private:
    std::string bytes_;
};

enum RawKind : uint8_t { kHello = 1, kCall, kOneWayCall, kReply, kRefused, kWaiting, kTapHello, kTapRecord, kMissed };

// What stands behind the head.
std::string body_of(const Packet &packet);
// A packet of several messages, and the messages of a packet; what is no message is the last one of them.
std::string together(const std::vector<Packet> &messages);
std::vector<std::string> messages_of(const std::string &packet);

Packet hello(const std::string &name = "raw");
// A call without arguments.
Packet call(uint32_t serial, const std::string &path, const std::string &function);

class RawPeer {
public:
    explicit RawPeer(const std::string &path);
    explicit RawPeer(int connected) : fd_(connected) {}
    ~RawPeer();
    RawPeer(const RawPeer &) = delete;
    RawPeer &operator=(const RawPeer &) = delete;

    int fd() const { return fd_; }
    bool connected() const { return fd_ >= 0; }
    // False when the peer is gone or its queue is full. Descriptors are copied by the kernel.
    bool send(const std::string &bytes, const std::vector<int> &fds = {});
    bool send(Packet packet, const std::vector<int> &fds = {});
    // The next message that is there now; nothing when there is none, "" at the end.
    std::optional<std::string> receive();
    // All messages that are there now, until the end or none is left.
    std::vector<std::string> receive_all();
    // The next packet behind the messages that have been taken out of theirs; likewise.
    std::optional<std::string> receive_packet();
    // The text of the first "refused" message that is there, or "".
    std::string refusal();
    // Whether the peer has closed (after what it had sent has been read).
    bool is_closed();
    void close();

private:
    int fd_ = -1;
    std::deque<std::string> received_; // messages of the last packet
};

// Kind, serial and the text behind the head, of a message that came.
uint8_t kind_of(const std::string &packet);
uint32_t serial_of(const std::string &packet);
uint32_t descriptors_of(const std::string &packet); // how many it says it brings
std::string text_of(const std::string &packet);

} // namespace support

#endif

// SPDX-License-Identifier: MIT
// Packets of a capture: of a pcapng file of either byte order, or of a pipe that such a file comes through.
#ifndef VOICECTL_CAPTURE_READER_H
#define VOICECTL_CAPTURE_READER_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pcapng_body.h"

namespace voicectl {

constexpr uint32_t kMostBlockBytes = 16 * 1024 * 1024; // of one block of a file

// The bytes live until the next packet is asked for.
struct CapturedPacket {
    uint64_t time_ns = 0;
    std::string_view dissector{}; // that it is for: "kexbus", "rtp", "rtcp"
    uint32_t source = 0, destination = 0;
    uint16_t source_port = 0, destination_port = 0;
    std::string_view bytes{};   // behind the tags
    std::string_view comment{}; // of sound that a plugin kept: whose it is
};

class CaptureReader {
public:
    // The descriptor stays the caller's.
    explicit CaptureReader(int descriptor) : descriptor_(descriptor) {}

    // False: the end, or `fault` says why no more can be read. After an interrupt it takes what comes within a second, as a
    // capture in front of the pipe writes its rest.
    bool next(CapturedPacket &packet);
    // A printable sentence; empty: nothing is wrong so far.
    const std::string &fault() const { return fault_; }
    // Packets that are no messages of upper layers, and the link type of the first of them.
    uint64_t strange() const { return strange_; }
    uint16_t strange_link_type() const { return strange_link_type_; }
    // Packets of no interface, longer than their block, or with tags that are not whole.
    uint64_t broken() const { return broken_; }

private:
    bool block_next(uint32_t &type);
    bool section_take();
    void interface_take();
    bool packet_take(CapturedPacket &packet);
    bool broken_note();
    bool bytes_have(size_t size);
    bool input_wait();
    bool stop(const std::string &fault);
    pcapng::Body block() const;
    pcapng::Body body() const;

    int descriptor_;
    std::vector<char> input_{}; // what has been read; the block at hand begins at begin_
    size_t begin_ = 0;
    size_t size_ = 0; // of the block at hand
    uint64_t at_ = 0; // where it begins in the file
    bool swapped_ = false;
    std::vector<pcapng::Interface> interfaces_{};
    std::string fault_{};
    uint64_t strange_ = 0;
    uint16_t strange_link_type_ = 0;
    uint64_t broken_ = 0;
    std::optional<std::chrono::steady_clock::time_point> enough_{}; // after an interrupt
};

} // namespace voicectl

#endif

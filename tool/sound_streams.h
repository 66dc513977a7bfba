// SPDX-License-Identifier: MIT
// The RTP streams of a capture: from where to where, when, and what was lost on the way.
#ifndef VOICECTL_SOUND_STREAMS_H
#define VOICECTL_SOUND_STREAMS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "capture_reader.h"
#include "rtp_receiver.h"

namespace voicectl {

struct SoundStream {
    uint32_t source = 0, destination = 0; // IPv4
    uint16_t source_port = 0, destination_port = 0;
    uint32_t ssrc = 0;
    std::string comment{};    // of its first packet: whose sound it is, as a plugin says that kept it
    uint8_t payload_type = 0; // of the first packet
    uint64_t begin_ns = 0, end_ns = 0;
    uint64_t packets = 0, bytes = 0; // bytes of payload
    uint64_t lost = 0, twice = 0;
    double jitter_ms = 0, most_jitter_ms = 0; // RFC 3550 6.4.1: at the end, and at its worst
    double lost_percent() const;
};

class SoundStreams {
public:
    static constexpr size_t kMostStreams = 500; // further ones are counted only

    // A packet of dissector "rtp"; of others nothing is taken.
    void add(const CapturedPacket &packet);
    // In the order in which they begin.
    std::vector<SoundStream> streams() const;
    uint64_t left_out() const { return left_out_; }

private:
    using Key = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t>; // addresses, both ports, source
    struct Heard {
        SoundStream stream{};
        rtp_receiver receiver{};
    };
    std::map<Key, Heard> heard_{};
    uint64_t left_out_ = 0; // packets
};

// "127.0.0.1:30000".
std::string address_words(uint32_t address, uint16_t port);
// "PCMA" for a static type of RFC 3551, "type 96" for others.
std::string payload_type_words(uint8_t type);
// "595 packets  0 lost (0.0 %)  jitter 0.2 ms, 1.1 ms at most  127.0.0.1:30000 to 127.0.0.1:30002"
std::string stream_words(const SoundStream &stream);

} // namespace voicectl

#endif

// SPDX-License-Identifier: MIT
#include "sound_streams.h"

#include <algorithm>

#include <fmt/format.h>

#include "rtp.h"

namespace voicectl {

namespace {

constexpr size_t kMostComment = 100;
constexpr double kClockPerMs = kRtpClock / 1000.0;
constexpr uint64_t kNsPerTick = 1'000'000'000 / kRtpClock;

} // namespace

double SoundStream::lost_percent() const {
    const uint64_t all = packets - std::min(twice, packets) + lost;
    return all == 0 ? 0 : 100.0 * static_cast<double>(lost) / static_cast<double>(all);
}

void SoundStreams::add(const CapturedPacket &packet) {
    rtp_packet read{};
    if (packet.dissector != "rtp" ||
        !rtp_read(reinterpret_cast<const uint8_t *>(packet.bytes.data()), packet.bytes.size(), &read))
        return;
    const Key key = {packet.source, packet.destination, uint32_t{packet.source_port} << 16 | packet.destination_port,
                     read.ssrc};
    if (!heard_.contains(key) && heard_.size() >= kMostStreams) {
        ++left_out_;
        return;
    }
    auto &[stream, receiver] = heard_[key];
    if (stream.packets == 0)
        stream = {.source = packet.source,
                  .destination = packet.destination,
                  .source_port = packet.source_port,
                  .destination_port = packet.destination_port,
                  .ssrc = read.ssrc,
                  .comment = std::string(packet.comment.substr(0, kMostComment)),
                  .payload_type = read.payload_type,
                  .begin_ns = packet.time_ns};
    ++stream.packets;
    stream.bytes += read.bytes;
    stream.end_ns = std::max(stream.end_ns, packet.time_ns);
    rtp_receive(&receiver, &read, static_cast<uint32_t>(packet.time_ns / kNsPerTick));
}

std::vector<SoundStream> SoundStreams::streams() const {
    std::vector<SoundStream> all;
    for (const auto &[key, heard] : heard_) {
        SoundStream stream = heard.stream;
        stream.lost = rtp_lost(&heard.receiver);
        stream.twice = heard.receiver.duplicates;
        stream.jitter_ms = rtp_jitter(&heard.receiver) / kClockPerMs;
        stream.most_jitter_ms = heard.receiver.peak_jitter / kClockPerMs;
        all.push_back(stream);
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const SoundStream &a, const SoundStream &b) { return a.begin_ns < b.begin_ns; });
    return all;
}

std::string address_words(uint32_t address, uint16_t port) {
    return fmt::format("{}.{}.{}.{}:{}", address >> 24, address >> 16 & 0xFF, address >> 8 & 0xFF, address & 0xFF,
                       port);
}

std::string payload_type_words(uint8_t type) {
    constexpr std::pair<uint8_t, const char *> kNames[] = {{0, "PCMU"}, {3, "GSM"}, {4, "G723"},  {8, "PCMA"},
                                                           {9, "G722"}, {13, "CN"}, {15, "G728"}, {18, "G729"}};
    for (const auto &[number, name] : kNames)
        if (number == type)
            return name;
    return fmt::format("type {}", type);
}

std::string stream_words(const SoundStream &stream) {
    return fmt::format("{} packets  {} lost ({:.1f} %)  jitter {:.1f} ms, {:.1f} ms at most  {} to {}", stream.packets,
                       stream.lost, stream.lost_percent(), stream.jitter_ms, stream.most_jitter_ms,
                       address_words(stream.source, stream.source_port),
                       address_words(stream.destination, stream.destination_port));
}

} // namespace voicectl

// SPDX-License-Identifier: MIT
#include "capture_media.h"

#include <fmt/format.h>

#include "pcapng.h"

namespace voicectl {

namespace {

// What tells RTCP from RTP on one port (RFC 5761): the second byte.
bool is_rtcp(std::string_view payload) {
    constexpr uint8_t kFirst = 192, kLast = 223;
    const uint8_t type = payload.size() > 1 ? static_cast<uint8_t>(payload[1]) : 0;
    return type >= kFirst && type <= kLast;
}

std::string tags_of(const Datagram &datagram) {
    const bool control = is_rtcp(datagram.payload);
    return pcapng::origin_tags({.dissector = control ? "rtcp" : "rtp",
                                .protocol = control ? "RTCP" : "RTP",
                                .datagrams = true,
                                .source = datagram.source,
                                .destination = datagram.destination,
                                .source_port = datagram.source_port,
                                .destination_port = datagram.destination_port});
}

} // namespace

std::string CaptureMedia::begin(PortRange ports) {
    ports_ = ports;
    return socket_.open(ports);
}

std::string CaptureMedia::head(uint32_t interface) {
    interface_ = interface;
    if (!socket_.is_open())
        return "";
    return pcapng::interface(pcapng::kUpperLayer, "media",
                             fmt::format("RTP and RTCP on UDP ports {} to {}", ports_.first, ports_.last));
}

void CaptureMedia::keep(CaptureFile &file, RunLimit &limit) {
    // No more than a few at a time: messages of the bus want to be read, too.
    constexpr int kAtATime = 256;
    Datagram datagram;
    for (int i = 0; i < kAtATime && socket_.is_open() && socket_.next(datagram); i++) {
        if (kept_ % kAtATime == 0)
            lost_count();
        file.add(
            pcapng::packet(interface_, datagram.time_ns, tags_of(datagram).append(datagram.payload), lost_before_, ""),
            limit);
        lost_before_ = 0;
        ++kept_;
    }
}

void CaptureMedia::lost_count() {
    const uint32_t lost = socket_.lost();
    lost_before_ += lost;
    lost_ += lost;
}

std::string CaptureMedia::sums(uint64_t time_ns) {
    if (!socket_.is_open())
        return "";
    lost_count();
    return pcapng::statistics(interface_, time_ns, kept_ + lost_, lost_);
}

} // namespace voicectl

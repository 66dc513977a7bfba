// SPDX-License-Identifier: MIT
// The sound of calls for a capture, from the files that hosts write.
#include "capture_from.h"

#include <fmt/format.h>

#include "common.h"
#include "pcapng.h"
#include "text.h"

namespace voicectl {

namespace {

std::string file_tags(const FilePacket &packet) {
    return pcapng::origin_tags({.dissector = packet.control ? "rtcp" : "rtp",
                                .protocol = packet.control ? "RTCP" : "RTP",
                                .datagrams = true,
                                .source = packet.source,
                                .destination = packet.destination,
                                .source_port = packet.source_port,
                                .destination_port = packet.destination_port});
}

} // namespace

void CaptureFrom::begin(const std::vector<std::string> &paths, uint64_t begin_ns) {
    begin_ns_ = begin_ns;
    for (const std::string &path : paths) {
        sources_.push_back(std::make_unique<Source>(path));
        sources_.back()->reader.look();
        if (!sources_.back()->reader.is_open() && sources_.back()->reader.fault().empty())
            complain(fmt::format("{} is not there yet: its packets are kept once it is", in_quotes(path)));
    }
}

std::string CaptureFrom::head(uint32_t first) {
    std::string blocks;
    for (const std::unique_ptr<Source> &source : sources_) {
        source->interface = first++;
        blocks += pcapng::interface(pcapng::kUpperLayer, "media",
                                    fmt::format("RTP and RTCP that a host received, from {}", printable(source->path)));
    }
    return blocks;
}

bool CaptureFrom::keep(CaptureFile &file, RunLimit &limit) {
    bool more = false;
    for (const std::unique_ptr<Source> &source : sources_)
        more = keep_some(*source, file, limit) || more;
    return more;
}

bool CaptureFrom::keep_some(Source &source, CaptureFile &file, RunLimit &limit) const {
    // No more than some at a time, of whatever kind: messages of the bus want to be read, too.
    int blocks = 1000;
    source.reader.look();
    if (source.reader.is_same(file.descriptor()))
        source.reader.leave("is the capture itself");
    source.was_there = source.was_there || source.reader.is_open();
    while (const std::optional<FilePacket> packet = source.reader.next(blocks)) {
        if (packet->time_ns < begin_ns_)
            continue;
        source.lost_before += packet->lost;
        source.lost += packet->lost;
        // What a host has sent is in the file of the host that received it.
        if (packet->sent)
            continue;
        file.add(pcapng::packet(source.interface, packet->time_ns, file_tags(*packet).append(packet->bytes),
                                source.lost_before, printable(packet->comment)),
                 limit);
        source.lost_before = 0;
        ++source.kept;
    }
    if (!source.reader.fault().empty() && !source.told)
        complain(fmt::format("{} {}: it is read no further", in_quotes(source.path), source.reader.fault()));
    source.told = !source.reader.fault().empty();
    return blocks == 0;
}

std::string CaptureFrom::sums(uint64_t time_ns) const {
    std::string blocks;
    for (const std::unique_ptr<Source> &source : sources_)
        blocks += pcapng::statistics(source->interface, time_ns, source->kept + source->lost, source->lost);
    return blocks;
}

std::vector<std::string> CaptureFrom::sentences() const {
    std::vector<std::string> sentences;
    for (const std::unique_ptr<Source> &source : sources_) {
        std::string sentence =
            fmt::format("{} packets of sound from {}, {} lost", source->kept, in_quotes(source->path), source->lost);
        if (!source->was_there && source->reader.fault().empty())
            sentence = fmt::format("{} was never there", in_quotes(source->path));
        if (source->reader.strange() != 0)
            sentence += fmt::format(", {} passed over: no RTP or RTCP over IPv4", source->reader.strange());
        sentences.push_back(sentence);
    }
    return sentences;
}

} // namespace voicectl

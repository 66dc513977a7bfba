// SPDX-License-Identifier: MIT
// What a session has counted, gathered from its parts.
#include "session.h"

namespace {

constexpr uint32_t kPerMs = kSampleRate / 1000;

uint32_t ms_of(uint64_t samples) {
    return static_cast<uint32_t>((samples + kPerMs / 2) / kPerMs);
}

// Rounded up, so that 0 says that nothing was measured.
uint32_t trip_ms(const rtcp_far_end *far_end, uint32_t trip) {
    if (!far_end->measured)
        return 0;
    const uint32_t ms = static_cast<uint32_t>((uint64_t{trip} * 1000 + 0xFFFF) >> 16);
    return ms == 0 ? 1 : ms;
}

} // namespace

line_statistics_t session_statistics(const media_session *session) {
    const jitter_counts *waits = &session->buffer.counts;
    line_statistics_t statistics = session->counts;
    statistics.tx_packets = session->sender.packets;
    statistics.tx_bytes = session->sender.bytes;
    statistics.rx_packets = session->receiver.packets;
    statistics.rx_bytes = session->receiver.bytes;
    statistics.lost = rtp_lost(&session->receiver);
    statistics.late = waits->late;
    statistics.duplicates = session->receiver.duplicates;
    statistics.overruns = waits->overruns + waits->flushed;
    statistics.discarded += statistics.late + statistics.overruns + statistics.duplicates;
    statistics.underruns = waits->underruns;
    statistics.concealed_ms = ms_of(waits->concealed);
    statistics.jitter = rtp_jitter(&session->receiver);
    statistics.peak_jitter = session->receiver.peak_jitter;
    statistics.buffer_least_ms = ms_of(waits->shortest);
    statistics.buffer_mean_ms = ms_of(waits->waits == 0 ? 0 : waits->sum / waits->waits);
    statistics.buffer_most_ms = ms_of(waits->longest);
    statistics.round_trip_ms = trip_ms(&session->far_end, session->far_end.round_trip);
    statistics.peak_round_trip_ms = trip_ms(&session->far_end, session->far_end.longest_trip);
    return statistics;
}

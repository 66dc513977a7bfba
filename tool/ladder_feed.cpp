// SPDX-License-Identifier: MIT
#include "ladder_feed.h"

#include "captured_step.h"

namespace voicectl {

namespace {

constexpr size_t kMostListeners = 64;
constexpr size_t kMostPendingBytes = 4 * 1024 * 1024; // of all of them

} // namespace

void LadderFeed::show(const Step &step) {
    if (!filter_.passes(step))
        return;
    builder_.add(step);
    ++shown_;
}

void LadderFeed::take(const CapturedPacket &packet) {
    if (packet.dissector != "kexbus") {
        sound_.add(packet);
        return;
    }
    ++taken_;
    CapturedStep captured = captured_step_read(packet.bytes, packet.time_ns);
    builder_.add_lost(packet.time_ns, captured.lost);
    if (!captured.step) {
        if (!captured.fault.empty())
            builder_.add_unreadable(packet.time_ns, captured.fault);
        return;
    }
    if (!captured.fault.empty()) {
        builder_.add_broken(*captured.step, captured.fault);
        return;
    }
    if (traffic_.size() >= kMostListeners && !traffic_.contains(captured.step->listener_process_id))
        traffic_.clear();
    const int32_t listener = captured.step->listener_process_id;
    show(traffic_[listener].next(std::move(*captured.step)));
    room_keep(listener);
}

// Beyond what all listeners may have on their minds only the one at hand is remembered: in a capture of several one stands
// behind the other.
void LadderFeed::room_keep(int32_t listener) {
    size_t bytes = 0;
    for (const auto &[process, traffic] : traffic_)
        bytes += traffic.pending_bytes();
    if (bytes > kMostPendingBytes)
        std::erase_if(traffic_, [listener](const auto &entry) { return entry.first != listener; });
}

void LadderFeed::take(const kex_tap_record_t &record) {
    const std::optional<Step> step = traffic_[0].next(record);
    if (!step)
        return;
    ++taken_;
    if (step->kind == Step::Kind::lost)
        builder_.add_lost(step->time_ns, step->lost);
    else
        show(*step);
}

} // namespace voicectl

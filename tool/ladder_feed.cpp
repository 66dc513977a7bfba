// SPDX-License-Identifier: MIT
#include "ladder_feed.h"

#include "captured_step.h"

namespace voicectl {

namespace {

constexpr size_t kMostListeners = 64;

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
    show(traffic_[captured.step->listener_process_id].next(std::move(*captured.step)));
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

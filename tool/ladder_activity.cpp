// SPDX-License-Identifier: MIT
#include "ladder_activity.h"

namespace voicectl {

LadderActivity::LadderActivity(const LadderModel &ladder)
    : ladder_(ladder), busy_(ladder.lanes.size(), 0), blocked_(ladder.lanes.size(), 0) {}

size_t LadderActivity::process_of(int lane) const {
    const int owner = ladder_.lanes[static_cast<size_t>(lane)].owner;
    return static_cast<size_t>(owner >= 0 ? owner : lane);
}

// Whether its caller may wait for an answer. That to a one-way call says only that it found nothing.
bool LadderActivity::is_call(size_t row) const {
    return ladder_.rows[row].kind <= LadderRow::Kind::call;
}

bool LadderActivity::blocks(size_t row) const {
    const LadderRow &call = ladder_.rows[row];
    if (!is_call(row))
        return false;
    if (ladder_.is_unanswered(call))
        return ladder_.rows.back().time_ns - call.time_ns >= kBlockedNs;
    return call.partner > static_cast<int>(row) &&
           ladder_.rows[static_cast<size_t>(call.partner)].time_ns - call.time_ns >= kBlockedNs;
}

void LadderActivity::count(size_t call, int by) {
    const LadderRow &row = ladder_.rows[call];
    busy_[process_of(row.to)] += by;
    if (blocks(call))
        blocked_[process_of(row.from)] += by;
}

void LadderActivity::before(size_t row) {
    const LadderRow &reply = ladder_.rows[row];
    const bool answers = reply.kind == LadderRow::Kind::reply || reply.kind == LadderRow::Kind::error;
    // An answer from before its call, by a clock that was set back, ends nothing that has begun.
    if (answers && reply.partner >= 0 && reply.partner < static_cast<int>(row) &&
        is_call(static_cast<size_t>(reply.partner)))
        count(static_cast<size_t>(reply.partner), -1);
}

void LadderActivity::after(size_t row) {
    const LadderRow &call = ladder_.rows[row];
    if (is_call(row) && (call.partner > static_cast<int>(row) || blocks(row)))
        count(row, 1);
}

} // namespace voicectl

// SPDX-License-Identifier: MIT
// Implements trace_limit.h.
#include "base/trace_limit.h"
#include "base/clock.h"
#include "base/limits.h"

namespace bus {

namespace {

// What one process has caused in a period that began with its first message.
struct Row {
    int32_t process;
    uint64_t period_end; // 0: the row is free
    uint32_t told;
    uint32_t more;
};

struct Limits {
    int32_t cause;
    Row rows[kTracedProcesses];
    Row all;         // told: of all processes; more: of those that have lost their row
    uint32_t untold; // all that is counted as more
};

Limits limits = {kNobody, {}, {}, 0};

// A row whose period is over serves the next process, once its count has been told.
bool row_is_free(const Row &row, uint64_t now) {
    return row.period_end == 0 || (row.period_end <= now && row.more == 0);
}

// Of the process; else a free one; else that of which least has to be remembered.
Row &row_get(int32_t process, uint64_t now) {
    Row *found = nullptr;
    for (Row &row : limits.rows) {
        if (row.period_end != 0 && row.process == process)
            return row;
        if (found == nullptr || (row_is_free(row, now) && !row_is_free(*found, now)) ||
            (row_is_free(row, now) == row_is_free(*found, now) && row.more < found->more))
            found = &row;
    }
    limits.all.more += found->more;
    *found = {process, 0, 0, 0};
    return *found;
}

void period_begin(Row &row, uint64_t now) {
    if (row.period_end > now)
        return;
    row.period_end = now + kTracePeriod;
    row.told = 0;
}

} // namespace

int32_t trace_set_cause(int32_t process) {
    const int32_t before = limits.cause;
    limits.cause = process;
    return before;
}

bool trace_limit_passes(TraceTold *told) {
    if (limits.cause == kNobody)
        return true;
    // Now: a period that begins anew must not put its count off once more.
    trace_limit_tell(told);
    const uint64_t now = clock_monotonic();
    Row &row = row_get(limits.cause, now);
    period_begin(row, now);
    period_begin(limits.all, now);
    if (row.told >= kTracedOfProcess || limits.all.told >= kTracedOfAll) {
        row.more++;
        limits.untold++;
        return false;
    }
    row.told++;
    limits.all.told++;
    return true;
}

uint64_t trace_limit_due() {
    if (limits.untold == 0)
        return 0;
    uint64_t soonest = limits.all.more > 0 ? limits.all.period_end : 0;
    for (const Row &row : limits.rows) {
        if (row.more > 0 && (soonest == 0 || row.period_end < soonest))
            soonest = row.period_end;
    }
    return soonest;
}

void trace_limit_tell(TraceTold *told) {
    const uint64_t due = trace_limit_due();
    const uint64_t now = due != 0 ? clock_monotonic() : 0;
    if (due == 0 || due > now)
        return;
    const int32_t cause = trace_set_cause(kNobody);
    for (Row &row : limits.rows) {
        if (row.more == 0 || row.period_end > now)
            continue;
        const uint32_t more = row.more;
        row.more = 0;
        limits.untold -= more;
        told(more, row.process);
    }
    if (limits.all.more > 0 && limits.all.period_end <= now) {
        const uint32_t more = limits.all.more;
        limits.all.more = 0;
        limits.untold -= more;
        told(more, 0);
    }
    trace_set_cause(cause);
}

void trace_limit_begin() {
    limits = {limits.cause, {}, {}, 0};
}

} // namespace bus

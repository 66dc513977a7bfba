// SPDX-License-Identifier: MIT
// Implements missed.h.
#include "calls/missed.h"
#include "base/trace.h"

namespace bus {

namespace {

void period_end(MissedCalls *missed) {
    if (missed->more > 0)
        note(ZIL_TRACE_WARNING, "%u more calls found no object or no function", missed->more);
    missed->told = 0;
    missed->more = 0;
}

uint64_t missed_calls_deadline(void *self) {
    const MissedCalls &missed = static_cast<Calls *>(self)->missed;
    return missed.more > 0 ? missed.period_end : kNever;
}

void missed_calls_expire(void *self, uint64_t) {
    period_end(&static_cast<Calls *>(self)->missed);
}

const Module kMissedCalls = {.deadline = missed_calls_deadline, .expire = missed_calls_expire};

} // namespace

void missed_calls_begin(Calls *calls) {
    loop_join(calls->transport->loop, kMissedCalls, calls);
}

bool missed_call_tell(const Peer *peer, const char *title, const char *why) {
    Calls *calls = peer->calls;
    MissedCalls &missed = calls->missed;
    uint64_t now = clock_now(calls->transport->loop->clock);
    if (now >= missed.period_end) {
        period_end(&missed);
        missed.period_end = now + kMissedCallsPeriod;
    }
    if (missed.told == kMissedCallsTold) {
        missed.more++;
        return false;
    }
    missed.told++;
    char who[kTitleSize];
    note(ZIL_TRACE_WARNING, "%s calls %s: %s", connection_title(peer->connection, who, sizeof who), title, why);
    return true;
}

} // namespace bus

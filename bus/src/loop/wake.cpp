// SPDX-License-Identifier: MIT
// Implements wake.h.
#include "loop/wake.h"
#include "base/faults.h"
#include "base/limits.h"

#include <sys/timerfd.h>
#include <unistd.h>

namespace bus {

namespace {

constexpr uint64_t kAtOnce = 1; // as an absolute time: long past

// False: the kernel did not take it.
bool timer_set(Loop *loop, uint64_t when) {
    if (when == loop->armed)
        return true;
    itimerspec setting = {};
    setting.it_value.tv_sec = static_cast<time_t>(when / kSecond);
    setting.it_value.tv_nsec = static_cast<long>(when % kSecond);
    if (!fault_is_due(Fault::timer) && timerfd_settime(loop->timer.fd, TFD_TIMER_ABSTIME, &setting, nullptr) == 0)
        loop->armed = when;
    return when == loop->armed;
}

// An event counter does this for a fraction of what a timer costs that is due at once. False: as above.
bool work_show(Loop *loop) {
    const uint64_t one = 1;
    if (!loop->work_shown)
        loop->work_shown = write(loop->work.fd, &one, sizeof one) == static_cast<ssize_t>(sizeof one);
    return loop->work_shown;
}

bool has_work(Loop *loop) {
    if (loop->lanes.first != nullptr)
        return true;
    for (const Phase::Share &share : loop->has_work) {
        if (share.module->has_work(share.self))
            return true;
    }
    return false;
}

uint64_t modules_deadline(Loop *loop) {
    uint64_t soonest = kNever;
    for (const Phase::Share &share : loop->deadline)
        soonest = sooner(soonest, share.module->deadline(share.self));
    return soonest;
}

} // namespace

// Where one way of waking fails the other one serves: a turn too many does no harm, and a loop that nothing wakes
// sleeps for ever.
void loop_arm(Loop *loop) {
    loop->quiet_until = 0;
    if (has_work(loop)) {
        if (!work_show(loop))
            timer_set(loop, kAtOnce);
        return;
    }
    uint64_t deadline = modules_deadline(loop);
    if (loop->clock.now == nullptr)
        loop->quiet_until = deadline - 1; // kNever: for ever
    // A replaced clock does not move the kernel's timer.
    if (deadline != kNever && loop->clock.now != nullptr)
        deadline = deadline <= clock_now(loop->clock) ? kAtOnce : clock_monotonic() + kForeignClockPoll;
    if (!timer_set(loop, deadline))
        work_show(loop);
}

void loop_wake(Loop *loop) {
    if (!loop->in_turn)
        loop_arm(loop);
}

void timer_ready(Source *source) {
    Loop *loop = static_cast<LoopSource *>(source)->loop;
    uint64_t expirations;
    if (read(source->fd, &expirations, sizeof expirations) > 0)
        loop->armed = kNever;
}

void work_ready(Source *source) {
    Loop *loop = static_cast<LoopSource *>(source)->loop;
    uint64_t count;
    if (read(source->fd, &count, sizeof count) > 0)
        loop->work_shown = false;
}

} // namespace bus

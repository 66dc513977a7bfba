// SPDX-License-Identifier: MIT
// Implements loop.h: one epoll descriptor with everything behind it. No other file knows epoll.
#include "loop/loop.h"
#include "base/faults.h"
#include "base/limits.h"
#include "loop/wake.h"

#include <errno.h>
#include <initializer_list>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace bus {

namespace {

constexpr int kEventsPerTurn = 128;

// Stays readable: whoever polls the loop is to learn that it has been stopped.
void stop_ready(Source *) {}

int sources_poll(Loop *loop, int timeout) {
    epoll_event events[kEventsPerTurn];
    int count = epoll_wait(loop->epoll_fd, events, kEventsPerTurn, timeout);
    for (int i = 0; i < count; i++) {
        Source *source = static_cast<Source *>(events[i].data.ptr);
        source->ready(source);
    }
    return count < 0 && errno != EINTR ? -1 : 0;
}

template <class Function>
void phase_join(Phase &phase, Function Module::*function, const Phase::Share &share) {
    if (share.module->*function != nullptr)
        phase.shares[phase.count++] = share;
}

void phase_run(const Phase &phase, void (*Module::*function)(void *self)) {
    for (const Phase::Share &share : phase)
        (share.module->*function)(share.self);
}

void modules_expire(Loop *loop) {
    if (loop->looked_at <= loop->quiet_until)
        return;
    uint64_t now = 0;
    for (const Phase::Share &share : loop->expire) {
        const uint64_t deadline = share.module->deadline(share.self);
        if (deadline == kNever)
            continue;
        if (now == 0)
            now = clock_now(loop->clock);
        if (deadline <= now)
            share.module->expire(share.self, now);
    }
}

int turn_run(Loop *loop, int timeout) {
    loop->in_turn = true;
    if (sources_poll(loop, timeout) != 0) {
        loop->in_turn = false;
        return -1;
    }
    loop_look(loop);
    phase_run(loop->begin, &Module::begin);
    phase_run(loop->read, &Module::read);
    modules_expire(loop);
    uint32_t ran = tasks_run(loop, kTurnRunning);
    phase_run(loop->accept, &Module::accept);
    phase_run(loop->send, &Module::send);
    loop->in_turn = false;
    return static_cast<int>(ran);
}

bool own_source_add(Loop *loop, LoopSource *source, int fd, void (*ready)(Source *source)) {
    source->loop = loop;
    source->fd = fd;
    return fd >= 0 && source_add(loop, source, fd, ready);
}

} // namespace

bool loop_begin(Loop *loop) {
    lane_begin(&loop->own, loop, kWholeLane);
    loop->epoll_fd = fault_is_due(Fault::epoll) ? -1 : epoll_create1(EPOLL_CLOEXEC);
    bool timer = own_source_add(
        loop, &loop->timer,
        fault_is_due(Fault::timer) ? -1 : timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), timer_ready);
    bool work = own_source_add(loop, &loop->work, eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), work_ready);
    bool stop = own_source_add(loop, &loop->stop, eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), stop_ready);
    return timer && work && stop;
}

void loop_end(Loop *loop) {
    for (int fd : {loop->epoll_fd, loop->timer.fd, loop->work.fd, loop->stop.fd}) {
        if (fd >= 0)
            close(fd);
    }
}

void loop_freeze(Loop *loop) {
    loop->in_turn = true;
}

void loop_join(Loop *loop, const Module &module, void *self) {
    const Phase::Share share = {&module, self};
    phase_join(loop->begin, &Module::begin, share);
    phase_join(loop->read, &Module::read, share);
    phase_join(loop->accept, &Module::accept, share);
    phase_join(loop->has_work, &Module::has_work, share);
    phase_join(loop->deadline, &Module::deadline, share);
    phase_join(loop->expire, &Module::expire, share);
    phase_join(loop->send, &Module::send, share);
}

bool source_add(Loop *loop, Source *source, int fd, void (*ready)(Source *source)) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.ptr = source;
    if (fault_is_due(Fault::epoll) || epoll_ctl(loop->epoll_fd, EPOLL_CTL_ADD, fd, &event) != 0)
        return false;
    source->fd = fd;
    source->ready = ready;
    source->watched = true;
    source->reads = true;
    source->writes = false;
    return true;
}

void source_set_interest(Loop *loop, Source *source, bool reads, bool writes) {
    if (!source->watched || (source->reads == reads && source->writes == writes))
        return;
    epoll_event event = {};
    // The kernel shows a hang-up to whoever asks for nothing too: once is enough. Taken out of the loop instead, a
    // source might find no memory when it is to come back.
    if (!reads && !writes)
        event.events |= EPOLLET;
    if (reads)
        event.events |= EPOLLIN;
    if (writes)
        event.events |= EPOLLOUT;
    event.data.ptr = source;
    epoll_ctl(loop->epoll_fd, EPOLL_CTL_MOD, source->fd, &event);
    source->reads = reads;
    source->writes = writes;
}

void source_remove(Loop *loop, Source *source) {
    if (!source->watched)
        return;
    epoll_ctl(loop->epoll_fd, EPOLL_CTL_DEL, source->fd, nullptr);
    source->watched = false;
}

int loop_run(Loop *loop) {
    if (loop->in_turn) {
        errno = EINVAL;
        return -1;
    }
    while (loop->stopped == 0) {
        loop_arm(loop);
        if (turn_run(loop, -1) < 0)
            return -1;
    }
    return 0;
}

void loop_stop(Loop *loop) {
    int error = errno;
    loop->stopped = 1;
    const uint64_t one = 1;
    // The counter cannot fill up in practice; were it full, the descriptor would be readable all the same.
    ssize_t written = write(loop->stop.fd, &one, sizeof one);
    (void)written;
    errno = error;
}

int loop_dispatch(Loop *loop) {
    if (loop->in_turn)
        return 0;
    if (loop->stopped != 0)
        return -1;
    int ran = turn_run(loop, 0);
    loop_arm(loop);
    return loop->stopped != 0 ? -1 : ran;
}

} // namespace bus

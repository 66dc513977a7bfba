// SPDX-License-Identifier: MIT
// The loop (kex_host.h, "Bus and its loop"): one epoll descriptor with everything behind it. No other file knows epoll.
#include "loop/loop.h"
#include "loop/timer.h"
#include "loop/watch.h"
#include "transport/connection.h"
#include "transport/listener.h"
#include "transport/spare.h"

#include <errno.h>
#include <initializer_list>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

using namespace bus;

namespace {

constexpr int kEventsPerTurn = 128;
constexpr uint64_t kAtOnce = 1; // as an absolute time: long past

void set_timer(kex_t *bus, uint64_t when) {
    if (when == bus->armed)
        return;
    itimerspec setting = {};
    setting.it_value.tv_sec = static_cast<time_t>(when / kSecond);
    setting.it_value.tv_nsec = static_cast<long>(when % kSecond);
    if (timerfd_settime(bus->timer_fd, TFD_TIMER_ABSTIME, &setting, nullptr) == 0)
        bus->armed = when;
}

// An event counter does this for a fraction of what a timer costs that is due at once.
void be_ready(kex_t *bus) {
    const uint64_t one = 1;
    if (!bus->work_shown)
        bus->work_shown = write(bus->work_fd, &one, sizeof one) == static_cast<ssize_t>(sizeof one);
}

// The poll descriptor becomes readable when the next deadline is there, or at once while work is left over.
void arm(kex_t *bus) {
    if (bus->tasks.first != nullptr || bus->always_ready > 0 || bus->output_waits) {
        be_ready(bus);
        return;
    }
    uint64_t deadline = timers_deadline(bus);
    uint64_t links = links_deadline(bus);
    if (links != 0 && (deadline == 0 || links < deadline))
        deadline = links;
    // A replaced clock does not move the kernel's timer.
    if (deadline != 0 && bus->clock.now != nullptr)
        deadline = deadline <= clock_now(bus->clock) ? kAtOnce : clock_monotonic() + kForeignClockPoll;
    set_timer(bus, deadline);
}

void see(kex_t *bus, Source *source) {
    switch (source->kind) {
    case SourceKind::timer: {
        uint64_t expirations;
        if (read(bus->timer_fd, &expirations, sizeof expirations) > 0)
            bus->armed = 0;
        break;
    }
    case SourceKind::work: {
        uint64_t count;
        if (read(bus->work_fd, &count, sizeof count) > 0)
            bus->work_shown = false;
        break;
    }
    case SourceKind::stop:
        break;
    case SourceKind::watch:
        watch_ready(bus, static_cast<Watch *>(source));
        break;
    case SourceKind::link:
    case SourceKind::listener:
        source->ready = true;
        break;
    }
}

int poll_sources(kex_t *bus, int timeout) {
    epoll_event events[kEventsPerTurn];
    int count = epoll_wait(bus->epoll_fd, events, kEventsPerTurn, timeout);
    for (int i = 0; i < count; i++)
        see(bus, static_cast<Source *>(events[i].data.ptr));
    return count < 0 && errno != EINTR ? -1 : 0;
}

uint32_t run_tasks(kex_t *bus) {
    uint32_t ran = 0;
    set_dispatching_bus(bus);
    // Only what stands in the queue now: what the handlers add waits for the next turn, so that reading goes on.
    for (uint32_t left = bus->tasks.count; left > 0 && bus->stopped == 0; left--) {
        Task *task = bus->tasks.pop();
        if (task == nullptr)
            break;
        ran++;
        task->run(task);
    }
    set_dispatching_bus(nullptr);
    return ran;
}

// Known peers are read before new ones are taken in: whoever reconnects finds its old connection's end handled first.
int turn(kex_t *bus, int timeout) {
    bus->in_turn = true;
    if (poll_sources(bus, timeout) != 0) {
        bus->in_turn = false;
        return -1;
    }
    watches_always_ready(bus);
    links_read(bus, listeners_ready(bus));
    listeners_accept(bus);
    links_expire(bus);
    timers_expire(bus);
    uint32_t ran = run_tasks(bus);
    links_flush(bus);
    bus->output_waits = false;
    bus->in_turn = false;
    return static_cast<int>(ran);
}

} // namespace

namespace bus {

bool loop_open(kex_t *bus) {
    bus->epoll_fd = epoll_create1(EPOLL_CLOEXEC);
    bus->timer_fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    bus->stop_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    bus->work_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (bus->epoll_fd < 0 || bus->timer_fd < 0 || bus->stop_fd < 0 || bus->work_fd < 0)
        return false;
    bus->timer_source.kind = SourceKind::timer;
    bus->stop_source.kind = SourceKind::stop;
    bus->work_source.kind = SourceKind::work;
    return loop_add(bus, bus->timer_fd, &bus->timer_source) && loop_add(bus, bus->stop_fd, &bus->stop_source) &&
           loop_add(bus, bus->work_fd, &bus->work_source);
}

void loop_close(kex_t *bus) {
    for (int fd : {bus->epoll_fd, bus->timer_fd, bus->stop_fd, bus->work_fd}) {
        if (fd >= 0)
            close(fd);
    }
}

bool loop_add(kex_t *bus, int fd, Source *source) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.ptr = source;
    if (epoll_ctl(bus->epoll_fd, EPOLL_CTL_ADD, fd, &event) != 0)
        return false;
    source->watched = true;
    source->reads = true;
    source->writes = false;
    return true;
}

void loop_interest(kex_t *bus, int fd, Source *source, bool reads, bool writes) {
    if (!source->watched || (source->reads == reads && source->writes == writes))
        return;
    epoll_event event = {};
    if (reads)
        event.events |= EPOLLIN;
    if (writes)
        event.events |= EPOLLOUT;
    event.data.ptr = source;
    epoll_ctl(bus->epoll_fd, EPOLL_CTL_MOD, fd, &event);
    source->reads = reads;
    source->writes = writes;
}

void loop_remove(kex_t *bus, int fd, Source *source) {
    if (!source->watched)
        return;
    epoll_ctl(bus->epoll_fd, EPOLL_CTL_DEL, fd, nullptr);
    source->watched = false;
}

void loop_push(kex_t *bus, Task *task) {
    bus->tasks.push(task);
    loop_wake(bus);
}

void loop_wake(kex_t *bus) {
    if (!bus->in_turn)
        arm(bus);
}

} // namespace bus

int kex_run(kex_t *bus) {
    if (bus == nullptr || bus->in_turn) {
        errno = EINVAL;
        return -1;
    }
    while (bus->stopped == 0) {
        arm(bus);
        if (turn(bus, -1) < 0)
            return -1;
    }
    return 0;
}

void kex_stop(kex_t *bus) {
    if (bus == nullptr)
        return;
    int error = errno;
    bus->stopped = 1;
    const uint64_t one = 1;
    // The counter cannot fill up in practice; were it full, the descriptor would be readable all the same.
    ssize_t written = write(bus->stop_fd, &one, sizeof one);
    (void)written;
    errno = error;
}

int kex_pollDescriptor(kex_t *bus) {
    return bus != nullptr ? bus->epoll_fd : -1;
}

int kex_dispatch(kex_t *bus) {
    if (bus == nullptr || bus->in_turn)
        return 0;
    if (bus->stopped != 0)
        return -1;
    int ran = turn(bus, 0);
    arm(bus);
    return bus->stopped != 0 ? -1 : ran;
}

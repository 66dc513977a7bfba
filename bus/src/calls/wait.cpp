// SPDX-License-Identifier: MIT
// kex_waitForReply (kex.h): reads one peer, runs nothing, and tells both sides when it takes long.
#include "calls/wait.h"
#include "base/trace.h"
#include "calls/call.h"
#include "calls/request.h"
#include "loop/loop.h"
#include "transport/spare.h"

#include <poll.h>
#include <string.h>

using namespace bus;

namespace {

bool is_under_way(const request_t *r) {
    return r->state == RequestState::queued || r->state == RequestState::left;
}

// Both sides wait for each other: nobody is left to answer. The line is all that can be done, since a wait has no limit
// of its own; without it two processes would stand still for no visible reason.
void trace_deadlock(Link *link) {
    char title[kTitleSize];
    char name[kTitleSize];
    link_title(link, title, sizeof title);
    note(ZIL_TRACE_ERROR, "this process and %s wait for each other: we for '%s' of '%s', they for %s", title,
         link->awaited->function, link->awaited->path, call_title(link, link->awaited_by_it, name, sizeof name));
}

void announce(Link *link, request_t *r, uint64_t waited) {
    char title[kTitleSize];
    note(ZIL_TRACE_WARNING, "waiting for %s to answer '%s' of '%s' for %u s", link_title(link, title, sizeof title),
         r->function, r->path, static_cast<unsigned>(waited / kSecond));
    wire::Writer writer = wire::packet_begin(link->bus->outgoing, link->packet_limit);
    wire::waiting_write(writer, r->serial);
    link_queue(link, writer, kReplyAllowance);
}

uint64_t duration(const timeval *timeout) {
    if (timeout->tv_sec < 0 || (timeout->tv_sec == 0 && timeout->tv_usec <= 0))
        return 0;
    uint64_t seconds = static_cast<uint64_t>(timeout->tv_sec);
    constexpr uint64_t kForever = UINT64_MAX / 4;
    if (seconds > kForever / kSecond)
        return kForever;
    return seconds * kSecond + static_cast<uint64_t>(timeout->tv_usec) * kMicrosecond;
}

int milliseconds_until(kex_t *bus, uint64_t now, uint64_t when) {
    // A replaced clock does not move while we sleep by the real one.
    if (bus->loop.clock.now != nullptr)
        return static_cast<int>(kForeignClockPoll / kMillisecond);
    uint64_t left = when > now ? (when - now + kMillisecond - 1) / kMillisecond : 0;
    return left < 60000 ? static_cast<int>(left) : 60000;
}

// Sleeps until something can be read or written or `when` has come.
void sleep_until(Link *link, uint64_t now, uint64_t when) {
    kex_t *bus = link->bus;
    short events = POLLIN;
    if (link->out.first != nullptr && link->retry_at == 0)
        events |= POLLOUT;
    if (link->retry_at != 0 && link->retry_at < when)
        when = link->retry_at;
    pollfd descriptors[] = {{link->fd, events, 0}, {bus->loop.stop.fd, POLLIN, 0}};
    poll(descriptors, 2, milliseconds_until(bus, now, when));
}

// What arrived is queued by link_receive; the link is left as soon as the reply is there.
void read_for(Link *link, request_t *r) {
    while (is_under_way(r) && !link->closed) {
        if (link_is_full(link)) {
            link_refuse(link, "it sent too much while its reply was waited for");
            return;
        }
        if (!link_receive(link, 1))
            return;
    }
}

void wait_on(Link *link, request_t *r, const timeval *timeout) {
    kex_t *bus = link->bus;
    uint64_t begin = clock_now(bus->loop.clock);
    uint64_t end = timeout != nullptr ? begin + duration(timeout) : UINT64_MAX;
    uint64_t notice = begin + kFirstWaitNotice;
    uint64_t now = begin;
    for (;;) {
        if (link->retry_at == 0)
            link_flush(link);
        // Also with no time left: what has arrived already counts.
        sleep_until(link, now, notice < end ? notice : end);
        read_for(link, r);
        now = clock_now(bus->loop.clock);
        if (!is_under_way(r) || link->closed || bus->loop.stopped != 0 || now >= end)
            return;
        if (link->retry_at != 0 && link->retry_at <= now)
            link->retry_at = 0;
        if (now >= notice) {
            announce(link, r, now - begin);
            notice = now + kNextWaitNotice;
        }
    }
}

} // namespace

namespace bus {

void wait_announced(Link *link, uint32_t serial) {
    link->awaited_by_it = serial;
    if (link->awaited != nullptr && call_is_queued(link, serial))
        trace_deadlock(link);
}

} // namespace bus

int kex_waitForReply(kex_t *bus, request_t *r, const struct timeval *timeout) {
    if (bus == nullptr || r == nullptr || r->bus != bus)
        return 0;
    if (is_under_way(r)) {
        Link *link = r->link;
        link->awaited = r;
        if (link->awaited_by_it != 0 && call_is_queued(link, link->awaited_by_it))
            trace_deadlock(link);
        // For everybody: what was sent before the wait must not lie here until it ends.
        links_flush(bus);
        wait_on(link, r, timeout);
        link->awaited = nullptr;
        loop_wake(&bus->loop);
    }
    return r->state == RequestState::answered;
}

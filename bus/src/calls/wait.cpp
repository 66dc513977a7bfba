// SPDX-License-Identifier: MIT
// Implements wait.h.
#include "calls/wait.h"
#include "base/closer.h"
#include "base/trace.h"
#include "calls/call.h"
#include "calls/request.h"
#include "transport/output.h"
#include "transport/receive.h"
#include "transport/send.h"

#include <poll.h>
#include <sys/time.h>

namespace bus {

namespace {

// Each process waits for the other: nobody is left to answer. The trace message is all that can be done, since a wait
// has no limit of its own; without it two processes would stand still for no visible reason.
void trace_deadlock(const Peer *peer) {
    char title[kTitleSize];
    char name[kTitleSize];
    connection_title(peer->connection, title, sizeof title);
    note_about(peer->connection->process_id, ZIL_TRACE_ERROR,
               "this process and %s wait for each other: we for '%s' of '%s', they for %s", title,
               peer->awaited->function, peer->awaited->path, call_title(peer, peer->awaited_by_it, name, sizeof name));
}

void wait_announce(Connection *connection, const request_t *r, uint64_t waited) {
    char title[kTitleSize];
    note_about(connection->process_id, ZIL_TRACE_WARNING, "waiting for %s to answer '%s' of '%s' for %u s",
               connection_title(connection, title, sizeof title), r->function, r->path,
               static_cast<unsigned>(waited / kSecond));
    wire::Writer writer = output_begin(connection);
    wire::waiting_write(writer, r->serial);
    output_add(connection, writer, kReplyAllowance);
}

uint64_t duration_of(const timeval *timeout) {
    if (timeout->tv_sec < 0 || (timeout->tv_sec == 0 && timeout->tv_usec <= 0))
        return 0;
    uint64_t seconds = static_cast<uint64_t>(timeout->tv_sec);
    constexpr uint64_t kForever = UINT64_MAX / 4;
    if (seconds > kForever / kSecond)
        return kForever;
    return seconds * kSecond + static_cast<uint64_t>(timeout->tv_usec) * kMicrosecond;
}

int milliseconds_until(const Clock &clock, uint64_t now, uint64_t when) {
    // A replaced clock does not move while we sleep by the real one.
    if (clock.now != nullptr)
        return static_cast<int>(kForeignClockPoll / kMillisecond);
    uint64_t left = when > now ? (when - now + kMillisecond - 1) / kMillisecond : 0;
    return static_cast<int>(left); // there is a notice to give before long
}

// Sleeps until something can be read or written or `when` has come.
void sleep_until(const Connection *connection, uint64_t now, uint64_t when) {
    const Loop *loop = connection->transport->loop;
    short events = POLLIN;
    if (connection->output.first != nullptr && connection->retry_at == kNever)
        events |= POLLOUT;
    if (connection->retry_at != kNever && connection->retry_at < when)
        when = connection->retry_at;
    pollfd descriptors[] = {{connection->fd, events, 0}, {loop->stop.fd, POLLIN, 0}};
    poll(descriptors, 2, milliseconds_until(loop->clock, now, when));
}

// Whether the receive itself may do the sleeping, which saves a system call for each reply: nothing else is waited for
// but a stop, which is looked for before the next sleep.
bool receive_may_sleep(Connection *connection, uint64_t now, uint64_t when) {
    const Loop *loop = connection->transport->loop;
    return connection->output.first == nullptr && loop->clock.now == nullptr && loop->stopped == 0 &&
           when > now + kSleepInReceive && connection_may_await(connection);
}

// More than may lie here until it runs, or be closed of what it brought.
bool sent_too_much(const Connection *connection) {
    return connection_is_full(connection) || closings_pending_of(connection->process_id) >= kMaxClosings;
}

// What arrived is queued; the connection is left as soon as the reply is there or it has ended, which ends its
// requests, or much has come or taken long: a peer that sends without end must not keep the wait from looking at its
// time, and what a packet of many notices takes goes with how many calls lie here.
void connection_read_for(Connection *connection, const request_t *r, bool sleeps) {
    uint64_t end = kNever; // by the kernel's clock, from the first packet on: it may have been slept for
    for (uint32_t i = 0; i < kPacketsPerTurn; i++) {
        if (sent_too_much(connection)) {
            connection_refuse(connection, "it sent too much while its reply was waited for");
            return;
        }
        const bool more = sleeps ? connection_await(connection) : connection_receive(connection, 1, Reading::reads_on);
        if (!more || !request_is_under_way(r))
            return;
        sleeps = false;
        const uint64_t now = clock_monotonic();
        if (end == kNever)
            end = now + kTurnReading;
        if (now >= end)
            return;
    }
}

void wait_run(Connection *connection, const request_t *r, const timeval *timeout) {
    const Loop *loop = connection->transport->loop;
    uint64_t begin = clock_now(loop->clock);
    uint64_t end = timeout != nullptr ? begin + duration_of(timeout) : UINT64_MAX;
    uint64_t notice = begin + kFirstWaitNotice;
    uint64_t now = begin;
    for (;;) {
        if (connection->retry_at == kNever)
            connection_flush(connection);
        // Also with no time left: what has arrived already counts.
        const uint64_t when = notice < end ? notice : end;
        const bool sleeps = receive_may_sleep(connection, now, when);
        if (!sleeps)
            sleep_until(connection, now, when);
        connection_read_for(connection, r, sleeps);
        if (!request_is_under_way(r) || loop->stopped != 0)
            return;
        now = clock_now(loop->clock);
        if (now >= end)
            return;
        if (connection->retry_at != kNever && connection->retry_at <= now)
            connection->retry_at = kNever;
        if (now >= notice) {
            wait_announce(connection, r, now - begin);
            notice = now + kNextWaitNotice;
        }
    }
}

bool peer_waits_for_us(const Peer *peer) {
    return peer->awaited_by_it != 0 && call_is_queued(peer, peer->awaited_by_it);
}

} // namespace

bool request_wait(Calls *calls, request_t *r, const timeval *timeout) {
    if (r->calls != calls)
        return false;
    if (request_is_under_way(r)) {
        Peer *peer = r->peer;
        peer->awaited = r;
        if (peer_waits_for_us(peer))
            trace_deadlock(peer);
        // For everybody: what was sent before the wait must not lie here until it ends.
        connections_flush(calls->transport);
        wait_run(peer->connection, r, timeout);
        peer->awaited = nullptr;
        loop_wake(calls->transport->loop);
    }
    return r->state == RequestState::answered;
}

void wait_announced(Peer *peer, uint32_t serial) {
    peer->awaited_by_it = serial;
    if (peer->awaited != nullptr && peer_waits_for_us(peer))
        trace_deadlock(peer);
}

} // namespace bus

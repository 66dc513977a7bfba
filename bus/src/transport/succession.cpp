// SPDX-License-Identifier: MIT
// Implements succession.h.
#include "transport/succession.h"

#include <poll.h>
#include <sys/ioctl.h>

namespace bus {

namespace {

// The first end that is not finished; 0: there is none.
uint64_t oldest_end(const Transport *transport) {
    uint64_t oldest = 0;
    for (const Connection *connection : transport->connections) {
        if (connection->end_number != 0 && (oldest == 0 || connection->end_number < oldest))
            oldest = connection->end_number;
    }
    return oldest;
}

// The kernel is asked: an end may lie behind much that has not been read yet.
void ends_look(Transport *transport, uint64_t last_known) {
    pollfd polled[kMaxPeers];
    Connection *known[kMaxPeers];
    nfds_t count = 0;
    for (Connection *connection : transport->connections) {
        if (connection->end_number != 0 || connection->number > last_known || count == kMaxPeers)
            continue;
        known[count] = connection;
        polled[count++] = {connection->fd, POLLRDHUP, 0};
    }
    if (count == 0 || poll(polled, count, 0) <= 0)
        return;
    for (nfds_t i = 0; i < count; i++) {
        if ((polled[i].revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0)
            end_note(known[i]);
    }
}

int unread_bytes(const Connection *connection) {
    int bytes = 0;
    return !connection->closed && ioctl(connection->fd, FIONREAD, &bytes) == 0 ? bytes : 0;
}

} // namespace

Leavings leavings_of_process(Transport *transport, int32_t process_id) {
    Leavings found = {};
    ends_look(transport, transport->last_number);
    for (const Connection *connection : transport->connections) {
        if (connection->process_id != process_id || connection->end_number == 0)
            continue;
        const int unread = unread_bytes(connection);
        const bool is_held_back = connection->resume_at != kNever;
        found.much += connection->received.messages > kMuchToRun || unread > kMuchUnread;
        found.nothing += connection->received.messages == 0 && unread <= kLittleUnread && !is_held_back;
    }
    return found;
}

void end_note(Connection *connection) {
    if (connection->end_number == 0)
        connection->end_number = ++connection->transport->ends;
}

// Whoever ended before a newcomer connected had ended when that one was accepted: looking comes after accepting.
void newcomers_line_up(Transport *transport, uint64_t last_known) {
    ends_look(transport, last_known);
    const uint64_t oldest = oldest_end(transport);
    if (oldest == 0)
        return;
    for (Connection *connection : transport->connections) {
        if (connection->end_number != 0)
            connection->lane.share = kEndedShare;
        if (connection->number <= last_known)
            continue;
        connection->behind = connection->end_number != 0 ? connection->end_number - 1 : transport->ends;
        if (oldest <= connection->behind)
            lane_hold(&connection->lane);
    }
}

void newcomers_release(Transport *transport) {
    const uint64_t oldest = oldest_end(transport);
    for (Connection *connection : transport->connections) {
        if (!connection->lane.held || (!transport->ending && oldest != 0 && oldest <= connection->behind))
            continue;
        lane_release(&connection->lane);
    }
}

} // namespace bus

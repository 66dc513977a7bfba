// SPDX-License-Identifier: MIT
// Implements succession.h.
#include "transport/succession.h"

#include <poll.h>

namespace bus {

namespace {

// The first end that is not finished; 0: there is none.
uint32_t oldest_end(const Transport *transport) {
    uint32_t oldest = 0;
    for (const Connection *connection : transport->connections) {
        if (connection->end_number != 0 && (oldest == 0 || connection->end_number < oldest))
            oldest = connection->end_number;
    }
    return oldest;
}

// The kernel is asked: an end may lie behind much that has not been read yet.
void ends_look(Transport *transport, uint32_t last_known) {
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

} // namespace

void end_note(Connection *connection) {
    if (connection->end_number == 0)
        connection->end_number = ++connection->transport->ends;
}

// Whoever ended before a newcomer connected had ended when that one was accepted: looking comes after accepting.
void newcomers_line_up(Transport *transport, uint32_t last_known) {
    ends_look(transport, last_known);
    if (oldest_end(transport) == 0)
        return;
    for (Connection *connection : transport->connections) {
        if (connection->end_number != 0)
            connection->lane.share = kEndedShare;
        if (connection->number <= last_known)
            continue;
        connection->behind = transport->ends;
        lane_hold(&connection->lane);
    }
}

void newcomers_release(Transport *transport) {
    const uint32_t oldest = oldest_end(transport);
    for (Connection *connection : transport->connections) {
        if (!connection->lane.held || (!transport->ending && oldest != 0 && oldest <= connection->behind))
            continue;
        lane_release(&connection->lane);
        connection->resume_at = kNever; // its descriptors may come now
    }
}

} // namespace bus

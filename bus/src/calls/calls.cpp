// SPDX-License-Identifier: MIT
// Implements calls.h: makes and ends the parts of the layer, and tells the transport where to report to.
#include "calls/calls.h"
#include "calls/call.h"
#include "calls/function.h"
#include "calls/missed.h"
#include "calls/object.h"
#include "calls/peer.h"
#include "calls/request.h"
#include "calls/wait.h"

namespace bus {

namespace {

bool hello_received(Connection *connection) {
    return peer_for(connection->transport->calls, connection) != nullptr;
}

bool call_received(Connection *connection, const wire::Message &message, wire::Descriptors &descriptors) {
    return call_queue(connection->peer, message, descriptors);
}

bool reply_received(Connection *connection, const wire::Message &message, wire::Descriptors &descriptors) {
    return request_answer(connection->peer, message, descriptors);
}

void waiting_received(Connection *connection, uint32_t serial) {
    wait_announced(connection->peer, serial);
}

void connection_ended(Connection *connection, const char *why) {
    if (connection->role == Role::client)
        connection->transport->calls->unwelcome = !connection->hello_received;
    if (connection->peer != nullptr)
        requests_fail(connection->peer, why);
}

void connection_closed(Connection *connection) {
    if (connection->peer == nullptr)
        return;
    requests_leave(connection->peer);
    peer_close_event(connection->peer);
}

constexpr Reports kReports = {hello_received, call_received,  reply_received,   waiting_received,
                              request_sent,   request_unsent, connection_ended, connection_closed};

} // namespace

bool calls_begin(Calls *calls, Transport *transport, kex_t *bus) {
    calls->transport = transport;
    calls->bus = bus;
    transport_report_to(transport, calls, &kReports);
    missed_calls_begin(calls);
    return objects_begin(calls);
}

void calls_end(Calls *calls) {
    functions_end(calls);
    objects_end(calls);
    peers_end(calls);
}

} // namespace bus

// SPDX-License-Identifier: MIT
// Implements transport.h: what the layer's files do together.
#include "transport/transport.h"
#include "base/trace.h"
#include "transport/arrival.h"
#include "transport/connection.h"
#include "transport/listener.h"
#include "transport/receive.h"
#include "transport/send.h"
#include "transport/succession.h"
#include "value/tap_record.h"

#include <string.h>

namespace bus {

namespace {

Transport *transport_of(void *self) {
    return static_cast<Transport *>(self);
}

void transport_read(void *self) {
    connections_read(transport_of(self));
}

void transport_accept(void *self) {
    listeners_accept(transport_of(self));
}

bool transport_has_work(void *self) {
    return transport_of(self)->output_waits;
}

uint64_t transport_deadline(void *self) {
    const Transport *transport = transport_of(self);
    return sooner(connections_deadline(transport), transport->accept_at);
}

void transport_expire(void *self, uint64_t now) {
    connections_expire(transport_of(self), now);
    if (transport_of(self)->accept_at != kNever && transport_of(self)->accept_at <= now)
        listeners_resume(transport_of(self));
}

void transport_send(void *self) {
    connections_flush(transport_of(self));
    transport_of(self)->output_waits = false;
}

const Module kTransport = {.read = transport_read,
                           .accept = transport_accept,
                           .has_work = transport_has_work,
                           .deadline = transport_deadline,
                           .expire = transport_expire,
                           .send = transport_send};

} // namespace

bool transport_begin(Transport *transport, Loop *loop, const char *process_name, const Access &access) {
    transport->loop = loop;
    transport->access = access;
    transport->spare.original = loop->stop.fd;
    printable(transport->name, sizeof transport->name, process_name, strlen(process_name));
    transport->incoming = static_cast<Batch *>(memory_take(sizeof(Batch)));
    transport->outgoing = static_cast<uint8_t *>(memory_take(wire::kMaxTapRecord));
    loop_join(loop, kTransport, transport);
    return transport->incoming != nullptr && transport->outgoing != nullptr && spare_fill(transport->spare);
}

void transport_report_to(Transport *transport, Calls *calls, const Reports *reports) {
    transport->calls = calls;
    transport->reports = reports;
}

void transport_drain(Transport *transport, uint64_t nanoseconds) {
    connections_drain(transport, nanoseconds);
}

void transport_close(Transport *transport, const char *why) {
    transport->ending = true;
    for (Connection *connection : transport->connections)
        connection_close(connection, why);
    newcomers_release(transport);
}

void transport_end(Transport *transport) {
    listeners_close(transport);
    connections_free(transport);
    spare_release(transport->spare);
    free(transport->incoming);
    free(transport->outgoing);
}

} // namespace bus

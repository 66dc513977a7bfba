// SPDX-License-Identifier: MIT
// Implements connection.h: how a connection begins and ends.
#include "transport/connection.h"
#include "base/closer.h"
#include "base/trace.h"
#include "transport/admission.h"
#include "transport/output.h"
#include "transport/send.h"
#include "transport/succession.h"
#include "transport/tap.h"
#include "value/tap_record.h"

#include <initializer_list>
#include <stdio.h>
#include <unistd.h>

namespace bus {

namespace {

void connection_ready(Source *source) {
    Connection *connection = static_cast<Connection *>(source);
    connection->readable = true;
    connection->transport->any_readable = true;
}

void close_event_run(Task *task) {
    Connection *connection = static_cast<Connection *>(task);
    Transport *transport = connection->transport;
    transport->held_places--; // first: who is told may connect again
    transport->reports->closed(connection);
    transport->connections.remove(connection);
    free(connection);
    newcomers_release(transport);
}

// The last word on a socket: nobody waits until it has left.
void last_word_send(Transport *transport, int fd, void (*write)(wire::Writer &writer, const char *text),
                    const char *text) {
    wire::Writer writer = wire::message_begin(transport->outgoing, wire::kMaxTapRecord);
    write(writer, text);
    send(fd, writer.data, writer.size, MSG_DONTWAIT | MSG_NOSIGNAL);
}

void refusal_send(Transport *transport, int fd, const char *why) {
    last_word_send(transport, fd, wire::refusal_write, why);
}

// Whom we connect to ourselves is not counted against anybody.
const char *connection_refusal(Transport *transport, Role role, const Credentials &credentials) {
    if (role != Role::client)
        return admission_refusal(transport, credentials.process_id, credentials.user_id);
    return transport->held_places >= kMaxPeers ? "there are too many connections" : nullptr;
}

void hello_send(Connection *connection) {
    wire::Writer writer = output_begin(connection);
    wire::hello_write(writer, connection->transport->name);
    output_add(connection, writer, 1);
    // At once: whoever connects and then takes long over its first turn must not look like somebody who says nothing.
    connection_flush(connection);
}

} // namespace

const char *connection_title(const Connection *connection, char *buffer, size_t size) {
    snprintf(buffer, size, "'%s' (process %d)", connection->name, static_cast<int>(connection->process_id));
    return buffer;
}

Connection *connection_begin(Transport *transport, int fd, Role role) {
    const Credentials credentials = socket_credentials(fd);
    const char *why = connection_refusal(transport, role, credentials);
    Connection *connection = why == nullptr ? make<Connection>() : nullptr;
    if (connection == nullptr) {
        socket_refuse(transport, fd, why != nullptr ? why : "out of memory");
        return nullptr;
    }
    lane_begin(&connection->lane, transport->loop, 1);
    connection->run = close_event_run;
    connection->transport = transport;
    connection->role = role;
    connection->packet_limit = socket_packet_limit(fd);
    connection->process_id = credentials.process_id;
    connection->user_id = credentials.user_id;
    connection->number = ++transport->last_number;
    connection->hello_deadline = role == Role::server ? clock_now(transport->loop->clock) + kHelloLimit : 0;
    if (!source_add(transport->loop, connection, fd, connection_ready)) {
        connected_socket_close(fd);
        free(connection);
        return nullptr;
    }
    transport->connections.push(connection);
    transport->held_places++;
    hello_send(connection);
    return connection;
}

void connection_close(Connection *connection, const char *why) {
    if (connection->closed)
        return;
    Transport *transport = connection->transport;
    connection->closed = true;
    end_note(connection);
    if (connection->role == Role::tap)
        transport->taps--;
    source_remove(transport->loop, connection);
    connected_socket_close(connection->fd);
    connection->fd = -1;
    output_clear(connection);
    if (connection->hello_received && connection->role != Role::tap) {
        char title[kTitleSize];
        note(ZIL_TRACE_NOTICE, "connection to %s closed: %s", connection_title(connection, title, sizeof title), why);
        tap_event(connection, KEX_TAP_CLOSED, why);
    }
    transport->reports->ended(connection, why);
    lane_push(&connection->lane, connection);
}

void connection_refuse(Connection *connection, const char *why) {
    char title[kTitleSize];
    note_about(connection->process_id, ZIL_TRACE_ERROR, "connection to %s refused: %s",
               connection_title(connection, title, sizeof title), why);
    tap_event(connection, KEX_TAP_REFUSED, why);
    refusal_send(connection->transport, connection->fd, why);
    connection_close(connection, why);
}

void socket_refuse(Transport *transport, int fd, const char *why) {
    const int32_t process = socket_credentials(fd).process_id;
    note_about(process, ZIL_TRACE_ERROR, "connection of process %d refused: %s", static_cast<int>(process), why);
    refusal_send(transport, fd, why);
    connected_socket_close(fd);
}

void socket_give_up(Transport *transport, int fd) {
    last_word_send(transport, fd, wire::hello_write, transport->name);
    connected_socket_close(fd);
}

void connection_hold_back(Connection *connection) {
    connection->resume_at = clock_now(connection->transport->loop->clock) + kHoldBack;
}

uint64_t connections_deadline(const Transport *transport) {
    uint64_t soonest = kNever;
    for (Connection *connection : transport->connections) {
        if (connection->closed)
            continue;
        for (uint64_t deadline : {connection->hello_deadline, connection->retry_at, connection->resume_at})
            soonest = sooner(soonest, deadline);
    }
    return soonest;
}

void connections_expire(Transport *transport, uint64_t now) {
    for (Connection *connection : transport->connections) {
        if (connection->retry_at != kNever && connection->retry_at <= now)
            connection->retry_at = kNever;
        if (connection->resume_at != kNever && connection->resume_at <= now)
            connection->resume_at = kNever; // the turn's sending lets it be read again
        if (!connection->closed && connection->hello_deadline != kNever && connection->hello_deadline <= now)
            connection_refuse(connection, "no hello came within 2 s");
    }
}

void connections_free(Transport *transport) {
    while (Connection *connection = transport->connections.pop()) {
        task_remove(connection);
        free(connection);
    }
}

} // namespace bus

// SPDX-License-Identifier: MIT
// Implements intake.h.
#include "transport/intake.h"
#include "base/closer.h"
#include "base/trace.h"
#include "transport/tap.h"
#include "value/packet.h"

namespace bus {

namespace {

const char *hello_take(Connection *connection, const wire::Message &message) {
    Text name = wire::hello_name(message);
    printable(connection->name, sizeof connection->name, name.bytes, name.length);
    connection->hello_received = true;
    connection->hello_deadline = kNever;
    if (message.kind == wire::kTapHello)
        return tap_admit(connection);
    if (!connection->transport->reports->hello(connection))
        return "out of memory";
    tap_event(connection, KEX_TAP_CONNECTED, "");
    return nullptr;
}

void refusal_take(Connection *connection, const wire::Message &message) {
    Text reason = wire::refusal_reason(message);
    printable(connection->refusal, sizeof connection->refusal, reason.bytes, reason.length);
    char title[kTitleSize];
    note_about(connection->process_id, ZIL_TRACE_ERROR, "%s refused this process: %s",
               connection_title(connection, title, sizeof title), connection->refusal);
    tap_message(connection, TapDirection::received, message.data, message.size);
}

// A sentence when a valid message may not come here and now, else null.
const char *message_reject(const Connection *connection, const wire::Message &message) {
    if (message.kind == wire::kRefused)
        return nullptr;
    if (wire::message_comes_alone(message.data)) {
        if (connection->hello_received)
            return "a second hello came";
        return message.kind == wire::kTapHello && connection->role != Role::server ? "a tap answered" : nullptr;
    }
    if (!connection->hello_received)
        return "no hello came first";
    return connection->role == Role::tap ? "a tap only looks" : nullptr;
}

// Hands it on. A sentence when that is not possible, else null.
const char *message_dispatch(Connection *connection, const wire::Message &message, wire::Descriptors &descriptors) {
    const Reports *reports = connection->transport->reports;
    if (wire::message_comes_alone(message.data))
        return hello_take(connection, message);
    if (message.kind == wire::kRefused) {
        refusal_take(connection, message);
        return nullptr;
    }
    tap_message(connection, TapDirection::received, message.data, message.size);
    switch (message.kind) {
    case wire::kCall:
    case wire::kOneWayCall:
        return reports->call(connection, message, descriptors) ? nullptr : "out of memory";
    case wire::kReply:
        return reports->reply(connection, message, descriptors) ? nullptr : "out of memory";
    case wire::kMissed:
        return nullptr; // taps have it; nobody here waits for anything
    default:
        reports->waiting(connection, message.serial);
        return nullptr;
    }
}

// Hands on the messages of a packet that is in order; of its descriptors remain those that have not been handed on. A
// sentence when one of them is lost, else null.
const char *packet_dispatch(Connection *connection, const wire::Packet &packet, wire::Descriptors &descriptors) {
    const char *why = nullptr;
    for (uint32_t i = 0; i < packet.count && why == nullptr; i++) {
        const wire::Message &message = packet.messages[i];
        wire::Descriptors own = {descriptors.fds, message.descriptors};
        descriptors.fds += message.descriptors;
        descriptors.count -= message.descriptors;
        why = message_dispatch(connection, message, own);
        wire::descriptors_close(own);
    }
    return why;
}

// A sentence what is wrong with the packet, else null.
const char *packet_take(Connection *connection, Arrival &arrival) {
    if (arrival.cut)
        return "the packet is too large";
    if (arrival.descriptors_lost)
        return "descriptors were lost: this process has no more";
    wire::Packet packet;
    const char *why = wire::packet_validate(arrival.packet, arrival.size, arrival.descriptors.count, packet);
    connection->messages += packet.count;
    for (uint32_t i = 0; i < packet.count && why == nullptr; i++)
        why = message_reject(connection, packet.messages[i]);
    return why != nullptr ? why : packet_dispatch(connection, packet, arrival.descriptors);
}

} // namespace

void connection_end(Connection *connection, const char *why) {
    connection_close(connection, connection->refusal[0] != '\0' ? connection->refusal : why);
}

void arrival_take(Connection *connection, Arrival &arrival) {
    const int32_t charged = closings_charge(connection->process_id);
    spare_received(connection->transport->spare, arrival.descriptors.count);
    foreign_descriptors_admit(arrival.fds, arrival.descriptors.count);
    const bool at_end = arrival.size == 0 && arrival.descriptors.count == 0;
    if (at_end && !connection->closed)
        connection_end(connection, "the peer is gone");
    const char *why = connection->closed ? nullptr : packet_take(connection, arrival);
    wire::descriptors_close(arrival.descriptors);
    if (why != nullptr)
        connection_refuse(connection, why);
    closings_charge(charged);
}

} // namespace bus

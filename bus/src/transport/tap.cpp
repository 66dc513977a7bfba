// SPDX-License-Identifier: MIT
// Implements tap.h.
#include "transport/tap.h"
#include "transport/output.h"
#include "value/tap_record.h"

#include <unistd.h>

namespace bus {

namespace {

wire::TapEnd end_here(const Transport *transport) {
    return {static_cast<int32_t>(getpid()), 0, text_of(transport->name)};
}

wire::TapEnd end_of(const Connection *connection) {
    return {connection->process_id, connection->number, text_of(connection->name)};
}

bool record_queue(Connection *tap, const wire::TapRecord &record) {
    // Records around the largest packet are larger than that; the kernel's usual buffers hold them.
    wire::Writer writer = wire::packet_begin(tap->transport->outgoing, wire::kMaxTapRecord);
    wire::tap_record_write(writer, record);
    return output_add(tap, writer, 1) != nullptr;
}

// A tap that has lost copies is told so in front of the next one that finds room.
void record_copy(Connection *tap, const Connection *about, const wire::TapRecord &record) {
    if (tap->lost > 0) {
        wire::TapRecord lost = {};
        lost.kind = KEX_TAP_LOST;
        lost.time = record.time;
        lost.from = end_of(about);
        lost.to = end_here(tap->transport);
        lost.lost = tap->lost;
        lost.text = text_of("");
        if (!record_queue(tap, lost)) {
            tap->lost++;
            return;
        }
        tap->lost = 0;
    }
    if (!record_queue(tap, record))
        tap->lost++;
}

void record_copy_to_taps(const Connection *about, TapDirection direction, wire::TapRecord &record) {
    const Transport *transport = about->transport;
    const bool received = direction == TapDirection::received;
    record.time = clock_wall();
    record.from = received ? end_of(about) : end_here(transport);
    record.to = received ? end_here(transport) : end_of(about);
    for (Connection *connection : transport->connections) {
        if (connection->role == Role::tap && !connection->closed && connection != about)
            record_copy(connection, about, record);
    }
}

} // namespace

void tap_begin(Connection *tap) {
    wire::TapRecord record = {};
    record.kind = KEX_TAP_WATCHING;
    record.time = clock_wall();
    record.from = end_here(tap->transport);
    record.to = end_of(tap);
    record.text = text_of("");
    if (!record_queue(tap, record))
        tap->lost++;
}

void tap_packet(const Connection *connection, TapDirection direction, const uint8_t *packet, uint32_t size) {
    wire::Message message;
    if (connection->transport->taps == 0 || connection->role == Role::tap ||
        wire::message_open(packet, size, message) != nullptr)
        return;
    wire::TapRecord record = {};
    record.kind = wire::tap_record_kind(message.kind);
    record.text = text_of("");
    record.packet = packet;
    record.size = size;
    if (record.kind != 0)
        record_copy_to_taps(connection, direction, record);
}

void tap_event(const Connection *connection, kex_tap_kind kind, const char *text) {
    if (connection->transport->taps == 0 || connection->role == Role::tap)
        return;
    wire::TapRecord record = {};
    record.kind = kind;
    record.text = text_of(text);
    // What we refuse goes out; what connects and closes comes in.
    record_copy_to_taps(connection, kind == KEX_TAP_REFUSED ? TapDirection::sent : TapDirection::received, record);
}

} // namespace bus

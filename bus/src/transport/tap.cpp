// SPDX-License-Identifier: MIT
// Implements tap.h.
#include "transport/tap.h"
#include "transport/output.h"
#include "value/tap_record.h"

#include <unistd.h>

namespace bus {

namespace {

wire::TapEnd end_here(const Transport *transport) {
    return {transport->process_id, 0, text_of(transport->name)};
}

// The low half of its number tells those apart that a tap can know.
wire::TapEnd end_of(const Connection *connection) {
    return {connection->process_id, static_cast<uint32_t>(connection->number), text_of(connection->name)};
}

// Records around the largest message are larger than a packet; the kernel's
// usual buffers hold them.
bool record_queue(Connection *tap, const wire::TapRecord &record) {
    const uint32_t size = wire::tap_record_size(record);
    uint8_t *room = output_takes_record(tap, size) ? output_add_record(tap, size) : nullptr;
    if (room == nullptr)
        return false;
    wire::Writer writer = wire::message_begin(room, size);
    wire::tap_record_write(writer, record);
    return true;
}

// A tap that has lost copies is told so in front of the next one that finds room.
bool loss_tell(Connection *tap, const wire::TapRecord &next) {
    if (tap->lost == 0)
        return true;
    wire::TapRecord lost = {};
    lost.kind = KEX_TAP_LOST;
    lost.time = next.time;
    lost.from = next.from;
    lost.to = next.to;
    lost.lost = tap->lost;
    lost.text = text_of("");
    if (!record_queue(tap, lost))
        return false;
    tap->lost = 0;
    return true;
}

// A tap that does not read costs a comparison.
void record_copy_to_taps(const Connection *about, TapDirection direction, wire::TapRecord &record) {
    const Transport *transport = about->transport;
    const bool received = direction == TapDirection::received;
    record.time = clock_wall();
    record.from = received ? end_of(about) : end_here(transport);
    record.to = received ? end_here(transport) : end_of(about);
    const uint32_t size = wire::tap_record_size(record);
    const OptionalMemory copies; // a tap is told what it loses
    for (Connection *tap : transport->connections) {
        if (tap->role == Role::tap && !tap->closed)
            tap->lost += !(output_takes_record(tap, size) && loss_tell(tap, record) && record_queue(tap, record));
    }
}

// A record for one tap alone.
void record_tell(Connection *tap, kex_tap_kind kind, const wire::TapEnd &from, const wire::TapEnd &to,
                 const char *text) {
    wire::TapRecord record = {};
    record.kind = kind;
    record.time = clock_wall();
    record.from = from;
    record.to = to;
    record.text = text_of(text);
    const OptionalMemory copy;
    if (!loss_tell(tap, record) || !record_queue(tap, record))
        tap->lost++;
}

// Tells a new tap that copies begin, since its client has connected long before the listener knows of it, and who is there
// already.
void tap_begin(Connection *tap) {
    const wire::TapEnd here = end_here(tap->transport);
    record_tell(tap, KEX_TAP_WATCHING, here, end_of(tap), "");
    for (const Connection *peer : tap->transport->connections) {
        if (peer->role != Role::tap && peer->hello_received && !peer->closed)
            record_tell(tap, KEX_TAP_CONNECTED, end_of(peer), here, "before");
    }
}

bool is_of_others(const Connection *tap) {
    return tap->user_id != 0 && tap->user_id != geteuid();
}

} // namespace

const char *tap_admit(Connection *tap) {
    uint32_t of_process = 0;
    uint32_t of_others = 0;
    for (Connection *other : tap->transport->connections) {
        if (other->role != Role::tap || other->closed)
            continue;
        of_process += other->process_id == tap->process_id;
        of_others += is_of_others(other);
    }
    if (of_process >= kMaxTapsOfProcess)
        return "this process has as many taps as one may have";
    if (tap->transport->taps >= kMaxTaps)
        return "there are too many taps";
    if (is_of_others(tap) && of_others >= kMaxTapsOfOthers)
        return "the places that are left for taps are kept for the listener's own user";
    tap->role = Role::tap;
    tap->transport->taps++;
    tap->transport->process_id = static_cast<int32_t>(getpid()); // a host may have forked since it made its bus
    tap_begin(tap);
    return nullptr;
}

void tap_message(const Connection *connection, TapDirection direction, const uint8_t *data, uint32_t size) {
    if (connection->transport->taps == 0 || connection->role == Role::tap)
        return;
    wire::TapRecord record = {};
    record.kind = wire::tap_record_kind(wire::message_kind(data));
    record.text = text_of("");
    record.message = data;
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

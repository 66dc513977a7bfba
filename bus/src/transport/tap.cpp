// SPDX-License-Identifier: MIT
// The listening side of a tap: what passes is copied into records. kex_tap.cpp reads them; the body of a record is
//
//   kind (4) time (8) from to lost (4) text: why size (4) packet ...
//
// `from` and `to` are each process (4) connection (4) text: name. The packet is the one that passed, head included, and
// as long as `size` says; events without a packet have none.
#include "transport/tap.h"

#include <unistd.h>

using namespace bus;

namespace {

void put_this_side(wire::Writer &writer, const kex_t *bus) {
    wire::put_word(writer, static_cast<uint32_t>(getpid()));
    wire::put_word(writer, 0);
    wire::put_text(writer, bus->name);
}

void put_other_side(wire::Writer &writer, const Link *link) {
    wire::put_word(writer, static_cast<uint32_t>(link->process_id));
    wire::put_word(writer, link->number);
    wire::put_text(writer, link->name);
}

struct Record {
    int32_t kind;
    TapDirection direction;
    const char *text;
    const uint8_t *packet;
    uint32_t size;
    uint32_t lost;
};

bool write_record(Link *tap, const Link *about, const Record &record) {
    // Records around the largest packet are larger than that; the kernel's usual buffers hold them.
    wire::Writer writer = wire::start(tap->bus->outgoing, kOutgoingRoom, wire::kTapRecord, 0, 0);
    wire::put_word(writer, static_cast<uint32_t>(record.kind));
    wire::put_long(writer, clock_wall());
    if (record.direction == TapDirection::received) {
        put_other_side(writer, about);
        put_this_side(writer, tap->bus);
    } else {
        put_this_side(writer, tap->bus);
        put_other_side(writer, about);
    }
    wire::put_word(writer, record.lost);
    wire::put_text(writer, record.text);
    wire::put_word(writer, record.size);
    wire::put_bytes(writer, record.packet, record.size);
    return link_queue(tap, writer, 1) != nullptr;
}

// A tap that has lost copies is told so in front of the next one that finds room.
void copy_to(Link *tap, const Link *about, const Record &record) {
    if (tap->lost > 0) {
        Record lost = {KEX_TAP_LOST, TapDirection::received, "", nullptr, 0, tap->lost};
        if (!write_record(tap, about, lost)) {
            tap->lost++;
            return;
        }
        tap->lost = 0;
    }
    if (!write_record(tap, about, record))
        tap->lost++;
}

void copy_to_taps(Link *about, const Record &record) {
    kex_t *bus = about->bus;
    for (Link *link = bus->links.first; link != nullptr; link = List<Link>::after(link)) {
        if (link->role == Role::tap && !link->closed && link != about)
            copy_to(link, about, record);
    }
}

int32_t record_kind(uint8_t packet_kind) {
    switch (packet_kind) {
    case wire::kCall:
        return KEX_TAP_CALL;
    case wire::kOneWayCall:
        return KEX_TAP_ONE_WAY_CALL;
    case wire::kReply:
        return KEX_TAP_REPLY;
    case wire::kRefused:
        return KEX_TAP_REFUSED;
    case wire::kWaiting:
        return KEX_TAP_WAITING;
    default:
        return 0;
    }
}

} // namespace

namespace bus {

void tap_packet(Link *link, TapDirection direction, const uint8_t *packet, uint32_t size) {
    wire::Head head;
    if (link->bus->taps == 0 || link->role == Role::tap || wire::read_head(packet, size, head) != nullptr)
        return;
    int32_t kind = record_kind(head.kind);
    if (kind != 0)
        copy_to_taps(link, {kind, direction, "", packet, size, 0});
}

void tap_event(Link *link, kex_tap_kind kind, const char *text) {
    if (link->bus->taps == 0 || link->role == Role::tap)
        return;
    // What we refuse goes out; what connects and closes comes in.
    TapDirection direction = kind == KEX_TAP_REFUSED ? TapDirection::sent : TapDirection::received;
    copy_to_taps(link, {kind, direction, text, nullptr, 0, 0});
}

} // namespace bus

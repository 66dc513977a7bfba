// SPDX-License-Identifier: MIT
// Copies of what passes, for the taps of this bus.
#include "transport/tap.h"
#include "value/tap_record.h"

#include <unistd.h>

using namespace bus;

namespace {

wire::TapEnd end_here(const kex_t *bus) {
    return {static_cast<int32_t>(getpid()), 0, text_of(bus->name)};
}

wire::TapEnd end_of(const Link *link) {
    return {link->process_id, link->number, text_of(link->name)};
}

bool write_record(Link *tap, const wire::TapRecord &record) {
    // Records around the largest packet are larger than that; the kernel's usual buffers hold them.
    wire::Writer writer = wire::packet_begin(tap->bus->outgoing, wire::kMaxTapRecord);
    wire::tap_record_write(writer, record);
    return link_queue(tap, writer, 1) != nullptr;
}

// A tap that has lost copies is told so in front of the next one that finds room.
void copy_to(Link *tap, const Link *about, const wire::TapRecord &record) {
    if (tap->lost > 0) {
        wire::TapRecord lost = {};
        lost.kind = KEX_TAP_LOST;
        lost.time = record.time;
        lost.from = end_of(about);
        lost.to = end_here(tap->bus);
        lost.lost = tap->lost;
        lost.text = text_of("");
        if (!write_record(tap, lost)) {
            tap->lost++;
            return;
        }
        tap->lost = 0;
    }
    if (!write_record(tap, record))
        tap->lost++;
}

void copy_to_taps(const Link *about, TapDirection direction, wire::TapRecord &record) {
    kex_t *bus = about->bus;
    const bool received = direction == TapDirection::received;
    record.time = clock_wall();
    record.from = received ? end_of(about) : end_here(bus);
    record.to = received ? end_here(bus) : end_of(about);
    for (Link *link = bus->links.first; link != nullptr; link = List<Link>::after(link)) {
        if (link->role == Role::tap && !link->closed && link != about)
            copy_to(link, about, record);
    }
}

} // namespace

namespace bus {

void tap_packet(const Link *link, TapDirection direction, const uint8_t *packet, uint32_t size) {
    wire::Message message;
    if (link->bus->taps == 0 || link->role == Role::tap || wire::message_open(packet, size, message) != nullptr)
        return;
    wire::TapRecord record = {};
    record.kind = wire::tap_record_kind(message.kind);
    record.text = text_of("");
    record.packet = packet;
    record.size = size;
    if (record.kind != 0)
        copy_to_taps(link, direction, record);
}

void tap_event(const Link *link, kex_tap_kind kind, const char *text) {
    if (link->bus->taps == 0 || link->role == Role::tap)
        return;
    wire::TapRecord record = {};
    record.kind = kind;
    record.text = text_of(text);
    // What we refuse goes out; what connects and closes comes in.
    copy_to_taps(link, kind == KEX_TAP_REFUSED ? TapDirection::sent : TapDirection::received, record);
}

} // namespace bus

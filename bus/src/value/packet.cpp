// SPDX-License-Identifier: MIT
// Implements packet.h.
#include "value/packet.h"

namespace bus::wire {

namespace {

// The receiver takes a packet in whole or not at all: its table may have room for what each of several messages brings,
// but not for what all of them do.
bool descriptors_fit(uint32_t together, const PacketUse &message) {
    return message.descriptors == 0 || together <= kGatheredDescriptors;
}

} // namespace

const char *packet_open(const void *bytes, uint32_t size, Packet &packet) {
    const uint8_t *next = static_cast<const uint8_t *>(bytes);
    bool holds_hello = false;
    packet.count = 0;
    do {
        if (packet.count == kMaxMessages)
            return "too many messages";
        Message &message = packet.messages[packet.count];
        const char *why = message_open(next, size, message);
        if (why != nullptr)
            return why;
        next += message.size;
        size -= message.size;
        packet.count++;
        holds_hello |= message_comes_alone(message.data);
    } while (size > 0);
    return holds_hello && packet.count > 1 ? "a hello came together with other messages" : nullptr;
}

const char *packet_validate(const void *bytes, uint32_t size, uint32_t descriptors, Packet &packet) {
    const char *why = packet_open(bytes, size, packet);
    if (why == nullptr && descriptors > kMaxDescriptors)
        why = "too many descriptors";
    Totals totals = {};
    for (uint32_t i = 0; why == nullptr && i < packet.count; i++) {
        const Message &message = packet.messages[i];
        if (message.descriptors > descriptors)
            return "a descriptor did not come";
        descriptors -= message.descriptors;
        why = message_validate(message, totals);
    }
    return why == nullptr && descriptors > 0 ? "a descriptor came that no value names" : why;
}

bool packet_takes(PacketUse &packet, const PacketUse &message, uint32_t limit) {
    const PacketUse sum = {packet.messages + message.messages, packet.size + message.size,
                           packet.descriptors + message.descriptors, packet.values + message.values,
                           packet.errors + message.errors};
    const bool fits = sum.messages <= kMaxMessages && sum.size <= limit && descriptors_fit(sum.descriptors, message) &&
                      sum.values <= kMaxValues && sum.errors <= kMaxErrors;
    // Alone, each one that has been written fits.
    if (packet.messages > 0 && !fits)
        return false;
    packet = sum;
    return true;
}

} // namespace bus::wire

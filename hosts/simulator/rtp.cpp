// SPDX-License-Identifier: MIT
// RTP packets, byte by byte:
//
//      0        1        2                 4                           8          12
//     +--------+--------+-----------------+---------------------------+----------+---------
//     |V P X CC|M  PT   | sequence number | timestamp                 | SSRC     | CSRCs, extension, payload
//     +--------+--------+-----------------+---------------------------+----------+---------
#include "rtp.h"

#include "clock.h"
#include "network_order.h"

#include <string.h>
#include <sys/random.h>
#include <unistd.h>

namespace {

constexpr uint8_t kVersion = 2 << 6;
constexpr uint8_t kVersionMask = 3 << 6;
constexpr uint8_t kPadding = 1 << 5;
constexpr uint8_t kExtension = 1 << 4;
constexpr uint8_t kMarker = 1 << 7;

// A machine that has just started may have no random numbers yet. Two processes, or two moments, hardly ever share this one.
uint32_t number_of_moment() {
    constexpr uint32_t kSpread = 2654435761; // 2^32 by the golden ratio: neighbours come far from each other
    return (moment_steady().nanoseconds * kSpread) ^ (static_cast<uint32_t>(getpid()) * kSpread << 7);
}

} // namespace

void rtp_sender_start(rtp_sender *sender) {
    memset(sender, 0, sizeof *sender);
    uint32_t seed[3];
    if (getrandom(seed, sizeof seed, GRND_NONBLOCK) != sizeof seed)
        for (uint32_t &number : seed)
            number = number_of_moment();
    sender->ssrc = seed[0];
    sender->origin = seed[1];
    sender->sequence = static_cast<uint16_t>(seed[2]);
}

uint32_t rtp_time(const rtp_sender *sender, uint64_t sample) {
    return sender->origin + static_cast<uint32_t>(sample);
}

uint32_t rtp_write(rtp_sender *sender, uint8_t payload_type, uint64_t sample, const uint8_t *payload, uint32_t bytes,
                   uint8_t *packet, uint32_t size) {
    if (size < kRtpHeadBytes || bytes > size - kRtpHeadBytes)
        return 0;
    packet[0] = kVersion;
    packet[1] = static_cast<uint8_t>((payload_type & 0x7F) | (sender->talking ? 0 : kMarker));
    put16(packet + 2, sender->sequence);
    put32(packet + 4, rtp_time(sender, sample));
    put32(packet + 8, sender->ssrc);
    memcpy(packet + kRtpHeadBytes, payload, bytes);
    sender->talking = true;
    sender->sequence++;
    sender->packets++;
    sender->bytes += bytes;
    return kRtpHeadBytes + bytes;
}

bool rtp_read(const uint8_t *bytes, size_t size, rtp_packet *packet) {
    if (size < kRtpHeadBytes || (bytes[0] & kVersionMask) != kVersion)
        return false;
    size_t head = kRtpHeadBytes + (bytes[0] & 0x0Fu) * 4;
    if (bytes[0] & kExtension) {
        if (size < head + 4)
            return false;
        head += 4 + get16(bytes + head + 2) * 4u;
    }
    if (size < head)
        return false;
    size_t padding = bytes[0] & kPadding ? bytes[size - 1] : 0;
    if (padding > size - head || ((bytes[0] & kPadding) && padding == 0))
        return false;
    packet->marker = bytes[1] & kMarker;
    packet->payload_type = bytes[1] & 0x7F;
    packet->sequence = get16(bytes + 2);
    packet->timestamp = get32(bytes + 4);
    packet->ssrc = get32(bytes + 8);
    packet->payload = bytes + head;
    packet->bytes = static_cast<uint32_t>(size - head - padding);
    return true;
}

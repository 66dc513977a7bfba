// SPDX-License-Identifier: MIT
// RTP and RTCP packets, byte by byte:
//
//      0        1        2                 4                           8          12
//     +--------+--------+-----------------+---------------------------+----------+---------
//     |V P X CC|M  PT   | sequence number | timestamp                 | SSRC     | CSRCs, extension, payload
//     +--------+--------+-----------------+---------------------------+----------+---------
#include "rtp.h"

#include <string.h>
#include <sys/random.h>

namespace {

constexpr uint8_t kVersion = 2 << 6;
constexpr uint8_t kVersionMask = 3 << 6;
constexpr uint8_t kPadding = 1 << 5;
constexpr uint8_t kExtension = 1 << 4;
constexpr uint8_t kMarker = 1 << 7;

constexpr uint8_t kSenderReport = 200;
constexpr uint8_t kReceiverReport = 201;
constexpr uint8_t kSourceDescription = 202;
constexpr uint8_t kCanonicalName = 1;
constexpr uint32_t kSenderReportBytes = 28 + 24; // with one report block

void put16(uint8_t *at, uint16_t value) {
    at[0] = static_cast<uint8_t>(value >> 8);
    at[1] = static_cast<uint8_t>(value);
}

void put32(uint8_t *at, uint32_t value) {
    put16(at, static_cast<uint16_t>(value >> 16));
    put16(at + 2, static_cast<uint16_t>(value));
}

uint16_t get16(const uint8_t *at) {
    return static_cast<uint16_t>(at[0] << 8 | at[1]);
}

uint32_t get32(const uint8_t *at) {
    return static_cast<uint32_t>(get16(at)) << 16 | get16(at + 2);
}

uint32_t expected(const rtp_receiver *receiver) {
    return receiver->started ? receiver->cycles + receiver->highest - receiver->first + 1 : 0;
}

uint32_t lost_of_source(const rtp_receiver *receiver) {
    uint32_t wanted = expected(receiver);
    return wanted > receiver->of_source ? wanted - receiver->of_source : 0; // duplicates can outnumber
}

void follow_sequence(rtp_receiver *receiver, uint16_t sequence) {
    if (static_cast<int16_t>(sequence - receiver->highest) <= 0)
        return; // late, or a duplicate
    if (sequence < receiver->highest)
        receiver->cycles += 0x10000;
    receiver->highest = sequence;
}

} // namespace

void rtp_sender_start(rtp_sender *sender) {
    memset(sender, 0, sizeof *sender);
    uint32_t seed[3] = {1, 2, 3};
    (void)!getrandom(seed, sizeof seed, GRND_NONBLOCK);
    sender->ssrc = seed[0];
    sender->timestamp = seed[1];
    sender->sequence = static_cast<uint16_t>(seed[2]);
}

uint32_t rtp_write(rtp_sender *sender, uint8_t payload_type, const uint8_t *payload, uint32_t bytes, uint32_t samples,
                   uint8_t *packet, uint32_t size) {
    if (size < kRtpHeadBytes || bytes > size - kRtpHeadBytes)
        return 0;
    packet[0] = kVersion;
    packet[1] = static_cast<uint8_t>((payload_type & 0x7F) | (sender->talking ? 0 : kMarker));
    put16(packet + 2, sender->sequence);
    put32(packet + 4, sender->timestamp);
    put32(packet + 8, sender->ssrc);
    memcpy(packet + kRtpHeadBytes, payload, bytes);
    sender->talking = true;
    sender->sequence++;
    sender->timestamp += samples;
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

void rtp_receive(rtp_receiver *receiver, const rtp_packet *packet, uint32_t arrival) {
    uint32_t transit = arrival - packet->timestamp;
    if (!receiver->started || receiver->ssrc != packet->ssrc) {
        // A new source, as after a call was joined to others: its numbers have nothing to do with those before.
        receiver->lost_before += lost_of_source(receiver);
        receiver->started = true;
        receiver->ssrc = packet->ssrc;
        receiver->first = receiver->highest = packet->sequence;
        receiver->cycles = 0;
        receiver->of_source = 0;
    } else {
        follow_sequence(receiver, packet->sequence);
        int32_t difference = static_cast<int32_t>(transit - receiver->transit);
        uint32_t distance = difference < 0 ? 0u - static_cast<uint32_t>(difference) : static_cast<uint32_t>(difference);
        receiver->jitter_16 += distance - ((receiver->jitter_16 + 8) >> 4);
        if (rtp_jitter(receiver) > receiver->peak_jitter)
            receiver->peak_jitter = rtp_jitter(receiver);
    }
    receiver->transit = transit;
    receiver->of_source++;
    receiver->packets++;
    receiver->bytes += packet->bytes;
}

void rtp_discard(rtp_receiver *receiver, const rtp_packet *packet) {
    if (!receiver->started || receiver->ssrc != packet->ssrc)
        return;
    follow_sequence(receiver, packet->sequence);
    receiver->of_source++;
}

uint32_t rtp_lost(const rtp_receiver *receiver) {
    return receiver->lost_before + lost_of_source(receiver);
}

uint32_t rtp_jitter(const rtp_receiver *receiver) {
    return receiver->jitter_16 >> 4;
}

uint32_t rtcp_write_report(const rtp_sender *sender, const rtp_receiver *receiver, uint64_t ntp_time, const char *name,
                           uint8_t *packet, uint32_t size) {
    // The name's chunk: source, item, and at least one zero up to a whole word.
    uint32_t length = static_cast<uint32_t>(strlen(name));
    uint32_t description = (4 + 4 + 2 + length + 1 + 3) & ~3u;
    if (length > 255 || size < kSenderReportBytes + description)
        return 0;
    memset(packet, 0, kSenderReportBytes + description);
    packet[0] = kVersion | 1;
    packet[1] = kSenderReport;
    put16(packet + 2, kSenderReportBytes / 4 - 1);
    put32(packet + 4, sender->ssrc);
    put32(packet + 8, static_cast<uint32_t>(ntp_time >> 32));
    put32(packet + 12, static_cast<uint32_t>(ntp_time));
    put32(packet + 16, sender->timestamp);
    put32(packet + 20, sender->packets);
    put32(packet + 24, sender->bytes);
    put32(packet + 28, receiver->ssrc);
    put32(packet + 32, lost_of_source(receiver) & 0x00FFFFFF); // the fraction lost since the last report is not kept
    put32(packet + 36, receiver->cycles + receiver->highest);
    put32(packet + 40, rtp_jitter(receiver));

    uint8_t *sdes = packet + kSenderReportBytes;
    sdes[0] = kVersion | 1;
    sdes[1] = kSourceDescription;
    put16(sdes + 2, static_cast<uint16_t>(description / 4 - 1));
    put32(sdes + 4, sender->ssrc);
    sdes[8] = kCanonicalName;
    sdes[9] = static_cast<uint8_t>(length);
    memcpy(sdes + 10, name, length); // NOLINT(bugprone-not-null-terminated-result): the zeros stand there already
    return kSenderReportBytes + description;
}

bool rtcp_is_report(const uint8_t *bytes, size_t size) {
    if (size < 8 || (bytes[1] != kSenderReport && bytes[1] != kReceiverReport))
        return false;
    while (size > 0) {
        if (size < 4 || (bytes[0] & kVersionMask) != kVersion)
            return false;
        size_t length = (get16(bytes + 2) + size_t{1}) * 4;
        if (length > size)
            return false;
        bytes += length;
        size -= length;
    }
    return true;
}

// SPDX-License-Identifier: MIT
// RTCP packets, byte by byte. Each begins with version, padding and a count; its type; its length in words less one.
#include "rtcp.h"

#include "network_order.h"

#include <string.h>

namespace {

constexpr uint8_t kVersion = 2 << 6;
constexpr uint8_t kVersionMask = 3 << 6;
constexpr uint8_t kCountMask = 0x1F;
constexpr uint8_t kSenderReport = 200;
constexpr uint8_t kReceiverReport = 201;
constexpr uint8_t kSourceDescription = 202;
constexpr uint8_t kFarewell = 203;
constexpr uint8_t kCanonicalName = 1;
constexpr uint32_t kHeadBytes = 8; // with the source
constexpr uint32_t kSenderBytes = 20;
constexpr uint32_t kBlockBytes = 24;
constexpr uint32_t kTolerated = 66;          // 1 ms
constexpr uint32_t kLongestTrip = 60u << 16; // longer ones come of a clock that was set, or of a wrong report

uint32_t middle_of(uint64_t ntp_time) {
    return static_cast<uint32_t>(ntp_time >> 16);
}

uint8_t *head_put(uint8_t *at, uint32_t count, uint8_t type, uint32_t bytes, uint32_t ssrc) {
    at[0] = static_cast<uint8_t>(kVersion | count);
    at[1] = type;
    put16(at + 2, static_cast<uint16_t>(bytes / 4 - 1));
    put32(at + 4, ssrc);
    return at + kHeadBytes;
}

uint8_t *sender_put(uint8_t *at, const rtcp_report *report) {
    put32(at, static_cast<uint32_t>(report->ntp_time >> 32));
    put32(at + 4, static_cast<uint32_t>(report->ntp_time));
    put32(at + 8, report->rtp_time);
    put32(at + 12, report->sender->packets);
    put32(at + 16, report->sender->bytes);
    return at + kSenderBytes;
}

// Lost packets are a signed number of 24 bits: duplicates make it less than none.
uint32_t lost_put(int32_t lost) {
    constexpr int32_t kMost = 0x7FFFFF, kLeast = -0x800000;
    return static_cast<uint32_t>(lost > kMost ? kMost : lost < kLeast ? kLeast : lost) & 0xFFFFFF;
}

uint8_t *block_put(uint8_t *at, const rtcp_report *report) {
    rtp_receiver *receiver = report->receiver;
    const rtcp_far_end *far_end = report->far_end;
    const bool is_known = far_end->reported && far_end->source == receiver->ssrc;
    put32(at, receiver->ssrc);
    put32(at + 4, static_cast<uint32_t>(rtp_take_fraction(receiver)) << 24 | lost_put(rtp_lost_of_source(receiver)));
    put32(at + 8, rtp_highest(receiver));
    put32(at + 12, rtp_jitter(receiver));
    put32(at + 16, is_known ? far_end->last_report : 0);
    put32(at + 20, is_known ? middle_of(report->ntp_time) - far_end->last_arrival : 0);
    return at + kBlockBytes;
}

void block_read(rtcp_far_end *far_end, const uint8_t *block, uint32_t now) {
    const uint32_t report = get32(block + 16), held = get32(block + 20);
    // The two clocks of our own machine may differ by a little.
    const uint32_t trip = now - report - held > UINT32_MAX - kTolerated ? 0 : now - report - held;
    if (report == 0 || trip > kLongestTrip)
        return;
    far_end->measured = true;
    far_end->round_trip = trip;
    far_end->longest_trip = trip > far_end->longest_trip ? trip : far_end->longest_trip;
}

void packet_read(rtcp_far_end *far_end, uint32_t ssrc, uint32_t now, const uint8_t *packet, size_t size) {
    const bool sends = packet[1] == kSenderReport;
    if (packet[1] == kFarewell)
        far_end->left = true;
    if (!sends && packet[1] != kReceiverReport)
        return;
    size_t at = kHeadBytes;
    if (sends && size >= at + kSenderBytes) {
        far_end->reported = true;
        far_end->source = get32(packet + 4);
        far_end->last_report = get32(packet + at) << 16 | get32(packet + at + 4) >> 16;
        far_end->last_arrival = now;
    }
    at += sends ? kSenderBytes : 0;
    for (uint32_t blocks = packet[0] & kCountMask; blocks > 0 && size >= at + kBlockBytes; blocks--, at += kBlockBytes)
        if (get32(packet + at) == ssrc)
            block_read(far_end, packet + at, now);
}

size_t packet_bytes(const uint8_t *packet) {
    return (get16(packet + 2) + size_t{1}) * 4;
}

} // namespace

uint32_t rtcp_write(const rtcp_report *report, uint8_t *packet, uint32_t size) {
    // The name's chunk: source, item, and at least one zero up to a whole word.
    const uint32_t length = static_cast<uint32_t>(strlen(report->name));
    const uint32_t blocks = report->receiver->started ? 1 : 0;
    const uint32_t first = kHeadBytes + (report->sends ? kSenderBytes : 0) + blocks * kBlockBytes;
    const uint32_t description = (kHeadBytes + 2 + length + 1 + 3) & ~3u;
    const uint32_t farewell = report->leaves ? kHeadBytes : 0;
    const uint32_t ssrc = report->sender->ssrc;
    if (length > 255 || size < first + description + farewell)
        return 0;
    memset(packet, 0, first + description + farewell);
    uint8_t *at = head_put(packet, blocks, report->sends ? kSenderReport : kReceiverReport, first, ssrc);
    if (report->sends)
        at = sender_put(at, report);
    if (blocks > 0)
        at = block_put(at, report);
    at = head_put(at, 1, kSourceDescription, description, ssrc);
    at[0] = kCanonicalName;
    at[1] = static_cast<uint8_t>(length);
    memcpy(at + 2, report->name, length); // NOLINT(bugprone-not-null-terminated-result): the zeros stand there already
    if (report->leaves)
        head_put(packet + first + description, 1, kFarewell, farewell, ssrc);
    return first + description + farewell;
}

bool rtcp_is_report(const uint8_t *bytes, size_t size) {
    if (size < kHeadBytes || (bytes[1] != kSenderReport && bytes[1] != kReceiverReport))
        return false;
    while (size > 0) {
        if (size < 4 || (bytes[0] & kVersionMask) != kVersion || packet_bytes(bytes) > size)
            return false;
        const size_t length = packet_bytes(bytes);
        bytes += length;
        size -= length;
    }
    return true;
}

bool rtcp_read(rtcp_far_end *far_end, uint32_t ssrc, uint64_t ntp_time, const uint8_t *bytes, size_t size) {
    if (!rtcp_is_report(bytes, size))
        return false;
    for (; size > 0; size -= packet_bytes(bytes), bytes += packet_bytes(bytes))
        packet_read(far_end, ssrc, middle_of(ntp_time), bytes, packet_bytes(bytes));
    return true;
}

// SPDX-License-Identifier: MIT
// Sequence numbers and jitter of what arrives.
#include "rtp_receiver.h"

#include <string.h>

namespace {

uint32_t expected(const rtp_receiver *receiver) {
    return receiver->started ? receiver->cycles + receiver->highest - receiver->first + 1 : 0;
}

void seen_set(rtp_receiver *receiver, uint16_t sequence, bool seen) {
    uint8_t *byte = &receiver->seen[sequence % kNumbersNoted / 8];
    const uint8_t bit = static_cast<uint8_t>(1u << sequence % 8);
    *byte = static_cast<uint8_t>(seen ? *byte | bit : *byte & ~bit);
}

bool is_seen(const rtp_receiver *receiver, uint16_t sequence) {
    return (receiver->seen[sequence % kNumbersNoted / 8] & 1u << sequence % 8) != 0;
}

uint32_t lost_for_good(const rtp_receiver *receiver) {
    const uint32_t wanted = expected(receiver), came = receiver->of_source - receiver->twice;
    return wanted > came ? wanted - came : 0;
}

// From the candidate on, which came without being taken.
void source_begin(rtp_receiver *receiver, uint32_t ssrc, uint16_t first) {
    receiver->lost_before += lost_for_good(receiver);
    receiver->started = true;
    receiver->candidate = false;
    receiver->ssrc = ssrc;
    receiver->first = receiver->highest = first;
    receiver->cycles = 0;
    receiver->of_source = 1;
    receiver->twice = 0;
    receiver->expected_reported = receiver->received_reported = 0;
    memset(receiver->seen, 0, sizeof receiver->seen);
    seen_set(receiver, first, true);
}

bool is_second_in_a_row(const rtp_receiver *receiver, const rtp_packet *packet) {
    return receiver->candidate && packet->ssrc == receiver->candidate_ssrc &&
           packet->sequence == receiver->candidate_next;
}

// Whether the number lies where this stream's numbers are now.
bool is_near(const rtp_receiver *receiver, const rtp_packet *packet) {
    const uint16_t ahead = static_cast<uint16_t>(packet->sequence - receiver->highest);
    return packet->ssrc == receiver->ssrc && (ahead < kMostDropout || ahead > UINT16_MAX - kMostMisorder);
}

// Of one that is near. @return whether it is there for the first time
bool number_note(rtp_receiver *receiver, uint16_t sequence) {
    const uint16_t ahead = static_cast<uint16_t>(sequence - receiver->highest);
    receiver->of_source++;
    if (ahead > 0 && ahead < kMostDropout) {
        if (sequence < receiver->highest)
            receiver->cycles += 0x10000;
        for (uint32_t i = 1; i < ahead && i <= kNumbersNoted; i++)
            seen_set(receiver, static_cast<uint16_t>(sequence - i), false);
        receiver->highest = sequence;
    } else if (is_seen(receiver, sequence)) {
        receiver->twice++;
        return false;
    }
    seen_set(receiver, sequence, true);
    return true;
}

rtp_place place_find(rtp_receiver *receiver, const rtp_packet *packet) {
    if (!receiver->started) {
        source_begin(receiver, packet->ssrc, packet->sequence);
        return RTP_ANEW;
    }
    if (is_near(receiver, packet))
        return number_note(receiver, packet->sequence) ? RTP_NEXT : RTP_TWICE;
    if (is_second_in_a_row(receiver, packet)) {
        source_begin(receiver, packet->ssrc, static_cast<uint16_t>(packet->sequence - 1));
        number_note(receiver, packet->sequence);
        return RTP_ANEW;
    }
    receiver->candidate = true;
    receiver->candidate_ssrc = packet->ssrc;
    receiver->candidate_next = static_cast<uint16_t>(packet->sequence + 1);
    return RTP_DOUBTFUL;
}

void jitter_note(rtp_receiver *receiver, uint32_t transit) {
    const int32_t difference = static_cast<int32_t>(transit - receiver->transit);
    const uint32_t distance =
        difference < 0 ? 0u - static_cast<uint32_t>(difference) : static_cast<uint32_t>(difference);
    receiver->transit = transit;
    if (distance > kRtpClock) // the sender's time has jumped: that is no jitter of the network
        return;
    receiver->jitter_16 += distance - ((receiver->jitter_16 + 8) >> 4);
    if (rtp_jitter(receiver) > receiver->peak_jitter)
        receiver->peak_jitter = rtp_jitter(receiver);
}

} // namespace

rtp_place rtp_receive(rtp_receiver *receiver, const rtp_packet *packet, uint32_t arrival) {
    const rtp_place place = place_find(receiver, packet);
    if (place == RTP_DOUBTFUL)
        return place;
    receiver->packets++;
    receiver->bytes += packet->bytes;
    const uint32_t transit = arrival - packet->timestamp;
    if (place == RTP_ANEW)
        receiver->transit = transit;
    else // RFC 3550 6.4.1 goes by the order of arrival: what comes twice is an arrival too
        jitter_note(receiver, transit);
    receiver->duplicates += place == RTP_TWICE;
    return place;
}

void rtp_discard(rtp_receiver *receiver, const rtp_packet *packet) {
    if (receiver->started && is_near(receiver, packet))
        number_note(receiver, packet->sequence);
}

uint32_t rtp_lost(const rtp_receiver *receiver) {
    return receiver->lost_before + lost_for_good(receiver);
}

uint32_t rtp_jitter(const rtp_receiver *receiver) {
    return receiver->jitter_16 >> 4;
}

uint32_t rtp_highest(const rtp_receiver *receiver) {
    return receiver->cycles + receiver->highest;
}

int32_t rtp_lost_of_source(const rtp_receiver *receiver) {
    return static_cast<int32_t>(expected(receiver) - receiver->of_source);
}

uint8_t rtp_take_fraction(rtp_receiver *receiver) {
    const uint32_t wanted = expected(receiver) - receiver->expected_reported;
    const uint32_t came = receiver->of_source - receiver->received_reported;
    receiver->expected_reported = expected(receiver);
    receiver->received_reported = receiver->of_source;
    if (wanted == 0 || static_cast<int32_t>(wanted - came) <= 0)
        return 0;
    const uint32_t fraction = ((wanted - came) << 8) / wanted;
    return static_cast<uint8_t>(fraction > 255 ? 255 : fraction);
}

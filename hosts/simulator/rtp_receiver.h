// SPDX-License-Identifier: MIT
/**
 * @file rtp_receiver.h
 * The receiving side of a stream: which packets belong to it, and the counts of RFC 3550 A.1, A.3 and A.8.
 */
#pragma once

#include "rtp.h"

constexpr uint32_t kMostDropout = 3000; // a sequence number further ahead is a jump (RFC 3550 A.1)
constexpr uint32_t kMostMisorder = 100; // as is one further behind
constexpr uint32_t kNumbersNoted = 128; // newest sequence numbers that are known as seen; above kMostMisorder

struct rtp_receiver {
    bool started;
    uint32_t ssrc;
    uint16_t first;          // sequence number
    uint16_t highest;        // sequence number
    uint32_t cycles;         // times the sequence number has wrapped, in its own unit of 65536
    uint32_t of_source;      // packets of this source, duplicates too: what A.3 counts
    uint32_t twice;          // of these, duplicates
    bool candidate;          // a packet of another source, or behind a jump, has come
    uint32_t candidate_ssrc; // its source
    uint16_t candidate_next; // the sequence number that makes it two in a row
    uint8_t seen[kNumbersNoted / 8];
    uint32_t packets;     // packets of all sources that this side has followed
    uint32_t bytes;       // of payload
    uint32_t duplicates;  // of all sources
    uint32_t lost_before; // by earlier sources
    uint32_t transit;     // of the packet before
    uint32_t jitter_16;   // sixteen times the jitter, in RTP clock units
    uint32_t peak_jitter;
    uint32_t expected_reported, received_reported; // at the report before, for the fraction lost
};

enum rtp_place {
    RTP_NEXT,     // of the stream; also one that comes late
    RTP_ANEW,     // the stream's first one: of a new source, or of one that has begun its numbers anew
    RTP_TWICE,    // it has been there already; counted
    RTP_DOUBTFUL, // of another source, or a jump: it counts when the next one follows it. Not counted
};

/** Counts a packet. @param arrival  when it came, in RTP clock units */
rtp_place rtp_receive(rtp_receiver *receiver, const rtp_packet *packet, uint32_t arrival);
/** Takes note of a packet that came but cannot be used, as in the middle of a codec change: it is not lost. */
void rtp_discard(rtp_receiver *receiver, const rtp_packet *packet);
/** Packets that were expected by their sequence numbers and never came. */
uint32_t rtp_lost(const rtp_receiver *receiver);
/** Jitter in RTP clock units of 1/8000 s. */
uint32_t rtp_jitter(const rtp_receiver *receiver);

/** Of the present source, for a report block (RFC 3550 A.3): the highest sequence number with its cycles, packets lost
 *  (less than none when there are duplicates), and the share of them in 1/256 since this was asked last. */
uint32_t rtp_highest(const rtp_receiver *receiver);
int32_t rtp_lost_of_source(const rtp_receiver *receiver);
uint8_t rtp_take_fraction(rtp_receiver *receiver);

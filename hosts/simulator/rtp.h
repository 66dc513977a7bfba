// SPDX-License-Identifier: MIT
/**
 * @file rtp.h
 * RTP and the sender report of RTCP, as bytes (RFC 3550): no sockets here.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

constexpr uint32_t kRtpHeadBytes = 12;
constexpr uint32_t kRtpClock = 8000; // of every codec here; for G.722 too, by an old mistake that became the standard

/** The sending side of a stream. Start values are random by RFC 3550 5.1. */
struct rtp_sender {
    uint32_t ssrc;
    uint32_t timestamp;
    uint16_t sequence;
    bool talking; // the next packet is not the first of a talkspurt
    uint32_t packets;
    uint32_t bytes; // of payload
};

void rtp_sender_start(rtp_sender *sender);
/** Writes one packet and moves the sender on. @return its size; 0: it does not fit. */
uint32_t rtp_write(rtp_sender *sender, uint8_t payload_type, const uint8_t *payload, uint32_t bytes, uint32_t samples,
                   uint8_t *packet, uint32_t size);

/** What a packet says. The payload stays inside the packet. */
struct rtp_packet {
    uint8_t payload_type;
    bool marker;
    uint16_t sequence;
    uint32_t timestamp;
    uint32_t ssrc;
    const uint8_t *payload;
    uint32_t bytes;
};

/** Reads a packet: contributing sources, extension and padding are measured and passed over. @return whether it is one.
 */
bool rtp_read(const uint8_t *bytes, size_t size, rtp_packet *packet);

/** The receiving side of a stream: counts of RFC 3550 A.1, A.3 and A.8. */
struct rtp_receiver {
    bool started;
    uint32_t ssrc;
    uint16_t first;       // sequence number
    uint16_t highest;     // sequence number
    uint32_t cycles;      // times the sequence number has wrapped, in its own unit of 65536
    uint32_t of_source;   // packets of this source
    uint32_t packets;     // packets of all sources that this side has followed
    uint32_t bytes;       // of payload
    uint32_t lost_before; // by earlier sources
    uint32_t transit;     // of the packet before
    uint32_t jitter_16;   // sixteen times the jitter, in RTP clock units
    uint32_t peak_jitter;
};

/** Counts a packet. @param arrival  when it came, in RTP clock units */
void rtp_receive(rtp_receiver *receiver, const rtp_packet *packet, uint32_t arrival);
/** Takes note of a packet that came but cannot be used, as in the middle of a codec change: it is not lost. */
void rtp_discard(rtp_receiver *receiver, const rtp_packet *packet);
/** Packets that were expected by their sequence numbers and did not come. */
uint32_t rtp_lost(const rtp_receiver *receiver);
/** Jitter in RTP clock units of 1/8000 s. */
uint32_t rtp_jitter(const rtp_receiver *receiver);

/** Writes a sender report with one report block, and the source's name (SDES CNAME). @return its size; 0: it does not
 * fit. */
uint32_t rtcp_write_report(const rtp_sender *sender, const rtp_receiver *receiver, uint64_t ntp_time, const char *name,
                           uint8_t *packet, uint32_t size);
/** Whether the bytes are a compound RTCP packet that begins with a report and holds together. */
bool rtcp_is_report(const uint8_t *bytes, size_t size);

// SPDX-License-Identifier: MIT
/**
 * @file rtp.h
 * RTP packets as bytes (RFC 3550 5.1), and the sending side of a stream: no sockets here.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

constexpr uint32_t kRtpHeadBytes = 12;
constexpr uint32_t kRtpClock = 8000; // of every codec here; for G.722 too, by an old mistake that became the standard

/** The sending side of a stream. Start values are random by RFC 3550 5.1. */
struct rtp_sender {
    uint32_t ssrc;
    uint32_t origin; // RTP time when the sampling clock stands at 0
    uint16_t sequence;
    bool talking; // the next packet is not the first of a talkspurt
    uint32_t packets;
    uint32_t bytes; // of payload
};

void rtp_sender_start(rtp_sender *sender);
/** The RTP time of a moment of the sampling clock. It goes on while nothing is sent. */
uint32_t rtp_time(const rtp_sender *sender, uint64_t sample);
/** Writes one packet and moves the sender on. @param sample  of the sampling clock, the first in the payload
 *  @return its size; 0: it does not fit. */
uint32_t rtp_write(rtp_sender *sender, uint8_t payload_type, uint64_t sample, const uint8_t *payload, uint32_t bytes,
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

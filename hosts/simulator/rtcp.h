// SPDX-License-Identifier: MIT
/**
 * @file rtcp.h
 * RTCP packets as bytes (RFC 3550 6.4 to 6.6): reports, the source's name, and its farewell. No sockets here.
 */
#pragma once

#include "rtp_receiver.h"

/** What the far end's reports have said. */
struct rtcp_far_end {
    bool reported;         // it has sent a sender report
    uint32_t source;       // who it was that did
    uint32_t last_report;  // its NTP time, the middle 32 bits
    uint32_t last_arrival; // and when it came, by our clock in the same form
    bool measured;         // a round trip
    uint32_t round_trip;   // in 1/65536 s, of the newest report
    uint32_t longest_trip; // and the longest of all
    bool left;             // it has said farewell
};

/** What a report is made of. */
struct rtcp_report {
    const rtp_sender *sender;
    rtp_receiver *receiver; // whose fraction lost begins anew
    const rtcp_far_end *far_end;
    bool sends;        // RTP was sent of late: a sender report; else a receiver report
    uint64_t ntp_time; // now
    uint32_t rtp_time; // now
    const char *name;  // CNAME, at most 255 bytes
    bool leaves;       // BYE stands at the end
};

/** Writes a report, with a report block once something has come, and the source's name. @return its size; 0: it does
 *  not fit. */
uint32_t rtcp_write(const rtcp_report *report, uint8_t *packet, uint32_t size);
/** Whether the bytes are a compound RTCP packet that begins with a report and holds together. */
bool rtcp_is_report(const uint8_t *bytes, size_t size);
/** Reads such a packet. @param ssrc  our own, whose report blocks count @param ntp_time  now @return whether it is one
 */
bool rtcp_read(rtcp_far_end *far_end, uint32_t ssrc, uint64_t ntp_time, const uint8_t *bytes, size_t size);

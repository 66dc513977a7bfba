// SPDX-License-Identifier: MIT
/**
 * @file session.h
 * One call's sound: RTP and RTCP between two sockets. What arrives waits in a jitter buffer, what is said leaves in
 * packets of 10, 20 or 30 ms, and both go by the sampling clock.
 */
#pragma once

#include "frame.h"
#include "jitter_buffer.h"
#include "kex.h"
#include "line_driver.h"
#include "rtcp.h"
#include "sampling_clock.h"

struct media_session {
    bool open;
    const char *who;                 // names the source in its reports
    const jitter_settings *settings; // of the line
    line_media_t media;              // with its two sockets
    rtp_sender sender;
    rtp_receiver receiver;
    rtcp_far_end far_end;
    jitter_buffer buffer;
    line_statistics_t counts; // what the others do not count themselves
    uint64_t opened;          // sampling clock, nanoseconds
    uint64_t opened_ntp;      // the time of day then
    uint64_t first;           // sampling clock: the first sample of the packet that is being filled
    uint32_t filled;          // samples in it
    uint32_t steps;           // of time since it was opened
    uint32_t reported[2];     // packets sent until the last report, and until the one before
    int16_t packet[kMostPayload];
};

/** Hands the bus over, whose loop watches the sockets, and the name of the host, which sources are called by. */
void session_begin(kex_t *bus, const char *host);

/** Opens a session that is not open. @return null, and the two sockets are the session's from here on; else why not,
 *  and they are still the caller's. */
const char *session_open(media_session *session, const char *who, const jitter_settings *settings,
                         const line_media_t *media);
/** Changes an open session; sockets of -1 keep those it has. Context and stream stay. @return as above. */
const char *session_change(media_session *session, const line_media_t *media);
/** Closes an open session and its sockets, after it has read what has arrived and said farewell. */
void session_close(media_session *session);
/** What it has counted so far. */
line_statistics_t session_statistics(const media_session *session);

/** Whether sound comes from it, or goes into it, now. */
bool session_receives(const media_session *session);
bool session_sends(const media_session *session);
/** The kStepSamples that are heard from `position` on. */
void session_take(media_session *session, uint64_t position, int16_t *samples);
/** Sends the kStepSamples that were said from `position` on, when they fill a packet. */
void session_send(media_session *session, uint64_t position, const int16_t *samples);
/** Says that time is left out: what is said next follows upon nothing. */
void session_skip(media_session *session);
/** Says that a step of time is over: reports are due by it. */
void session_tick(media_session *session);

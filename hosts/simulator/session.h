// SPDX-License-Identifier: MIT
/**
 * @file session.h
 * One call's sound: RTP and RTCP between two sockets, received as it comes and sent frame by frame.
 */
#pragma once

#include "frame.h"
#include "kex.h"
#include "line_driver.h"
#include "rtp.h"

struct media_session {
    bool open;
    const char *who;    // names the source in its reports
    line_media_t media; // with its two sockets
    rtp_sender sender;
    rtp_receiver receiver;
    line_statistics_t counts; // what sender and receiver do not count themselves
    uint32_t ticks;           // frames of time since it was opened
    uint32_t waiting;         // frames that have arrived and were not heard yet
    int16_t frames[4][kFrameSamples];
};

/** Hands the bus over, whose loop watches the sockets. */
void session_begin(kex_t *bus);

/** Opens a session that is not open. @return null, and the two sockets are the session's from here on; else why not,
 *  and they are still the caller's. */
const char *session_open(media_session *session, const char *who, const line_media_t *media);
/** Changes an open session; sockets of -1 keep those it has. Context and stream stay. @return as above. */
const char *session_change(media_session *session, const line_media_t *media);
/** Closes an open session and its sockets, after it has read what has arrived. */
void session_close(media_session *session);
/** What it has counted so far. */
line_statistics_t session_statistics(const media_session *session);

/** Whether sound comes from it, or goes into it, now. */
bool session_receives(const media_session *session);
bool session_sends(const media_session *session);
/** The oldest frame that has arrived. @return no: there is none, and the frame is left as it is. */
bool session_take(media_session *session, int16_t *samples);
/** Sends a frame. */
void session_send(media_session *session, const int16_t *samples);
/** Says that the time of a frame is over: reports are due by it. */
void session_tick(media_session *session);

// SPDX-License-Identifier: MIT
/**
 * @file audio.h
 * The sound of a simulated telephone or channel: a mouth that sends a tone over RTP, and an ear that says what arrives.
 *
 * Each has up to two sessions, one for each call. Sessions in the same context are a conference: what one brings is
 * sent to the other, and the ear hears both. One 20 ms clock for the whole process drives all of them.
 */
#pragma once

#include "kex.h"
#include "rtp.h"
#include "tone.h"
#include "voice_records.h"

constexpr uint32_t kSessions = 2;

/** What a media command asks for. */
struct media_format {
    uint32_t mode; // voice_stream_mode
    uint32_t codec;
    uint32_t payload_type;
};

/** What a session has done, in the end. */
struct media_statistics {
    uint32_t tx_packets, tx_bytes, rx_packets, rx_bytes, lost, discarded, overruns, underruns;
    uint32_t tx_reports, rx_reports;
    uint32_t jitter, peak_jitter; // RTP clock units, 1/8000 s
    uint32_t last_tx_s, last_tx_us, last_rx_s, last_rx_us;
};

struct audio;

struct media_session {
    bool open;
    audio *owner;
    int rtp, rtcp;
    media_format format;
    uint32_t context, stream; // 0: not in a conference
    rtp_sender sender;
    rtp_receiver receiver;
    media_statistics counts; // what sender and receiver do not count themselves
    uint32_t ticks;
    uint32_t waiting; // frames that have arrived and were not heard yet
    int16_t frames[4][kFrameSamples];
};

struct audio {
    char who[40];
    tone mouth;
    ear hearing;
    char heard[48];     // what was said last
    char candidate[48]; // heard once; said when it is heard twice
    media_session sessions[kSessions];
    void (*hears)(audio *audio, const char *what); // "440Hz", or "" for silence
};

/** Reads a record from outside. @return null, or why it cannot be followed. */
const char *media_read_connection(const void *cnx_info, media_format *format);
const char *media_read_stream(const void *stream_info, media_format *format, uint32_t *stream);

/** Hands the bus over, whose loop runs the clock and the sockets. */
void audio_begin(kex_t *bus);
/** Gives an audio its name, its tone and its listener. */
void audio_start(audio *audio, const char *who, uint32_t frequency, void (*hears)(struct audio *, const char *));

/** Opens a session. The two descriptors are the session's from here on, also when it fails; others are the caller's. */
const char *audio_open(audio *audio, uint32_t index, const media_format *format, int rtp, int rtcp, uint32_t context,
                       uint32_t stream);
/** Changes a session; sockets of -1 keep those it has. */
const char *audio_change(audio *audio, uint32_t index, const media_format *format, int rtp, int rtcp);
/** Closes a session. @return whether it was open; then its counts. */
bool audio_close(audio *audio, uint32_t index, media_statistics *statistics);
/** "codec=PCMA ports=30000->30002", of an open session. Valid until the next call. */
const char *audio_text(const audio *audio, uint32_t index);
/** "tx=50 rx=49 lost=1 discarded=0 jitter=3". Valid until the next call. */
const char *media_statistics_text(const media_statistics *statistics);

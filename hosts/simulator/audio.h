// SPDX-License-Identifier: MIT
/**
 * @file audio.h
 * The sound of a line: what a simulated telephone, exchange line or channel hears and says.
 *
 *     tones that were ordered ---+--> gain --> tone detector, sinks      (heard)
 *     what comes over RTP -------+
 *     voice or source, tones ------> gain --> RTP, sinks                (said)
 *
 * Each has up to two sessions, one for each call. Sessions in the same context are a conference: what one brings is
 * sent to the other, and the detector is given both. The sampling clock of the process drives all of them, in both
 * directions at once. It runs as long as a line has a session, a tone, a source or a sink, and until silence has been
 * said.
 */
#pragma once

#include "audio_ends.h"
#include "kex.h"
#include "line_driver.h"
#include "session.h"
#include "sound_detector.h"
#include "tone_player.h"

constexpr uint32_t kAudios = 64; // in a process
constexpr uint32_t kSessions = LINE_APPEARANCES;

struct audio {
    char who[40];
    tone_generator voice;
    audio_ends ends;      // who else speaks and listens
    tone_player tone;     // sounds with the voice, for the far end
    tone_player receiver; // sounds in the receiver, with what comes from the far end
    sound_detector detector;
    media_session sessions[kSessions];
    jitter_settings settings;        // of all its sessions
    float heard_factor, said_factor; // by which what is heard, and what is said, is made louder; 1: as it is
    void (*hears)(const audio *sound, const char *what); // sound_detector.h; "" for silence
};

/** Hands the bus over, whose loop runs the clock and the sockets, and the name of the host, which sources are called by
 *  in their reports. */
void audio_begin(kex_t *bus, const char *host);
/** Gives a sound its name, its voice and its listener. It hears tones of Germany until audio_set_country(). */
void audio_start(audio *sound, const char *who, uint32_t frequency, void (*hears)(const audio *, const char *));

/**
 * Opens a session. @return null, and the two sockets are the session's from here on; else why not, and they are still
 * the caller's.
 */
const char *audio_open(audio *sound, uint32_t index, const line_media_t *media);
/** Changes a session; sockets of -1 keep those it has. Context and stream stay. @return as above. */
const char *audio_change(audio *sound, uint32_t index, const line_media_t *media);
/** Closes a session and its sockets. @return whether it was open; then its counts, which may be unwanted (null). */
bool audio_close(audio *sound, uint32_t index, line_statistics_t *statistics);

/** Learns the tones of a country, unless they are those that it knows. @return whether it is another country now */
bool audio_set_country(audio *sound, const char *country);
/** Begins a tone in the receiver in place of the one before. That for the far end is `tone`, which sounds while there is
 *  media. @return no: there is no clock */
bool audio_play(audio *sound, const tone_pattern *tone);
/** Ends it. */
void audio_stop(audio *sound);
/** Has a name for a list of tones, by which it is said when it is heard. */
void audio_learn_list(audio *sound, const char *name, const tone_pattern *list);
/** Forgets what was heard: nobody listens any more. */
void audio_forget(audio *sound);

/**
 * Has a source say its sound in place of the voice and of a source before; null: the voice again. Without media it is
 * given to the sinks only. @return null, or why not.
 */
const char *audio_set_source(audio *sound, const sound_source *source);
/** Gives both directions to a sink, from the next step on, until audio_remove_sink() with the same userdata. Both may be
 *  called from inside its functions. @return null, or why not. */
const char *audio_add_sink(audio *sound, const sound_sink *sink);
void audio_remove_sink(audio *sound, const void *userdata);
/** Tells the sinks what happens now, beside the sound. */
void audio_event(const audio *sound, const char *text);

/** How long the packet that came last waits for its time, in ms; 0 without media. */
uint32_t audio_wait_ms(const audio *sound);

/** "codec=PCMA ports=30000->30002", of an open session. Valid until the next call. */
const char *audio_text(const audio *sound, uint32_t index);
/** "talking line=0 codec=PCMA ports=30000->30002 context=1 stream=1", of one that has begun or changed. */
const char *audio_begin_text(const audio *sound, uint32_t index);
/** "media ended line=0 tx=50 rx=49 lost=1 discarded=0 jitter=3 rtcp=1/1 late=0 twice=0 concealed=20 buffer=39/40/41
 *  roundtrip=1". Valid until the next call. */
const char *audio_end_text(uint32_t index, const line_statistics_t *statistics);

// SPDX-License-Identifier: MIT
// Sound of simulated telephones and channels: one clock, what is spoken, heard and mixed.
#include "audio.h"

#include "codecs.h"
#include "kex_host.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {

constexpr uint32_t kMaxCatchUp = 10; // ticks; after a longer stop the time in between is left out
constexpr uint32_t kAudios = 64;

kex_t *audio_bus;
audio *audios[kAudios];
uint32_t audio_count;
uint32_t open_sessions;
int ticker = -1;

using frame = int16_t[kFrameSamples];

// What has arrived in each session, and all of it together. @return whether any session listens.
bool audio_receive(audio *sound, frame *in, int16_t *heard) {
    bool listens = false;
    for (uint32_t i = 0; i < kSessions; i++) {
        if (!session_receives(&sound->sessions[i]))
            continue;
        listens = true;
        if (session_take(&sound->sessions[i], in[i]))
            frame_add(heard, in[i]);
    }
    return listens;
}

// Everybody in a conference but the one who is sent it.
void conference_add(const audio *sound, uint32_t to, const frame *in, int16_t *out) {
    const uint32_t context = sound->sessions[to].media.context;
    for (uint32_t other = 0; other < kSessions; other++)
        if (other != to && context != 0 && sound->sessions[other].media.context == context)
            frame_add(out, in[other]);
}

void audio_send(audio *sound, const frame *in) {
    frame voice;
    tone_generator_next(&sound->voice, voice, kFrameSamples);
    for (uint32_t i = 0; i < kSessions; i++) {
        media_session *session = &sound->sessions[i];
        if (session_sends(session)) {
            frame out;
            memcpy(out, voice, sizeof out);
            conference_add(sound, i, in, out);
            session_send(session, out);
        }
        if (session->open)
            session_tick(session);
    }
}

void audio_listen(audio *sound, const int16_t *heard) {
    if (!tone_detector_listen(&sound->detector, heard, kFrameSamples))
        return;
    char name[sizeof sound->heard];
    tone_detector_name(&sound->detector, name, sizeof name);
    bool again = strcmp(name, sound->candidate) == 0; // once may be the edge of a tone
    memcpy(sound->candidate, name, sizeof name);
    if (again && strcmp(name, sound->heard) != 0) {
        memcpy(sound->heard, name, sizeof name);
        sound->hears(sound, name);
    }
}

void audio_tick(audio *sound) {
    frame heard = {}, in[kSessions] = {};
    const bool listens = audio_receive(sound, in, heard);
    audio_send(sound, in);
    if (listens)
        audio_listen(sound, heard);
}

void ticker_ready(int fd, void *) {
    uint64_t times = 0;
    if (read(fd, &times, sizeof times) != sizeof times)
        return;
    for (uint64_t i = 0; i < times && i < kMaxCatchUp; i++)
        for (uint32_t k = 0; k < audio_count; k++)
            audio_tick(audios[k]);
}

// False: none can be had now. Nothing of it is left then, so that the next call makes it.
bool ticker_make() {
    const int made = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    if (made < 0)
        return false;
    if (!kex_watch(audio_bus, made, nullptr, ticker_ready)) {
        close(made);
        return false;
    }
    ticker = made;
    return true;
}

// The clock stands still while nobody speaks.
bool ticker_run(bool on) {
    if (ticker < 0 && !ticker_make())
        return false;
    itimerspec period = {};
    if (on)
        period.it_interval.tv_nsec = period.it_value.tv_nsec = kFrameMs * 1000000L;
    return timerfd_settime(ticker, 0, &period, nullptr) == 0;
}

void detector_reset(audio *sound) {
    sound->detector.used = 0;
    sound->candidate[0] = 0;
    sound->heard[0] = 0;
}

media_session *session_at(audio *sound, uint32_t index) {
    return index < kSessions && sound->sessions[index].open ? &sound->sessions[index] : nullptr;
}

} // namespace

void audio_begin(kex_t *bus) {
    audio_bus = bus;
    session_begin(bus);
}

void audio_start(audio *sound, const char *who, uint32_t frequency, void (*hears)(const audio *, const char *)) {
    snprintf(sound->who, sizeof sound->who, "%s", who);
    sound->voice.frequency = frequency;
    sound->hears = hears;
    if (audio_count < kAudios)
        audios[audio_count++] = sound;
}

const char *audio_open(audio *sound, uint32_t index, const line_media_t *media) {
    if (index >= kSessions)
        return "no such line";
    if (sound->sessions[index].open)
        return "media is set up already";
    if (!ticker_run(true))
        return "no clock";
    const char *wrong = session_open(&sound->sessions[index], sound->who, media);
    if (wrong != nullptr) {
        ticker_run(open_sessions > 0);
        return wrong;
    }
    detector_reset(sound);
    open_sessions++;
    return nullptr;
}

const char *audio_change(audio *sound, uint32_t index, const line_media_t *media) {
    media_session *session = session_at(sound, index);
    const char *wrong = session == nullptr ? "there is no media to change" : session_change(session, media);
    if (wrong == nullptr)
        detector_reset(sound);
    return wrong;
}

bool audio_close(audio *sound, uint32_t index, line_statistics_t *statistics) {
    media_session *session = session_at(sound, index);
    if (session == nullptr)
        return false;
    session_close(session);
    if (statistics != nullptr)
        *statistics = session_statistics(session);
    detector_reset(sound);
    if (--open_sessions == 0)
        ticker_run(false);
    return true;
}

const char *audio_text(const audio *sound, uint32_t index) {
    static char text[64];
    const line_media_t *media = &sound->sessions[index].media;
    sockaddr_in local = {}, remote = {};
    socklen_t size = sizeof local;
    getsockname(media->media, reinterpret_cast<sockaddr *>(&local), &size);
    size = sizeof remote;
    getpeername(media->media, reinterpret_cast<sockaddr *>(&remote), &size);
    snprintf(text, sizeof text, "codec=%s ports=%u->%u", codec_name(media->codec), ntohs(local.sin_port),
             ntohs(remote.sin_port));
    return text;
}

const char *audio_begin_text(const audio *sound, uint32_t index) {
    static char text[128];
    const line_media_t *media = &sound->sessions[index].media;
    const char *state = media->mode == VOICE_MODE_INACTIVE ? "on hold" : "talking";
    int used = snprintf(text, sizeof text, "%s line=%u %s", state, index, audio_text(sound, index));
    if (media->context != 0)
        snprintf(text + used, sizeof text - static_cast<size_t>(used), " context=%u stream=%u", media->context,
                 media->stream);
    return text;
}

const char *audio_end_text(uint32_t index, const line_statistics_t *statistics) {
    static char text[160];
    snprintf(text, sizeof text, "media ended line=%u tx=%u rx=%u lost=%u discarded=%u jitter=%u rtcp=%u/%u", index,
             statistics->tx_packets, statistics->rx_packets, statistics->lost, statistics->discarded,
             statistics->jitter, statistics->tx_reports, statistics->rx_reports);
    return text;
}

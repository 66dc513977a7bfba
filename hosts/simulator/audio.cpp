// SPDX-License-Identifier: MIT
// Sound of simulated telephones and channels: one clock, what is spoken, heard and mixed.
#include "audio.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr uint32_t kAudios = 64;
constexpr uint32_t kPeriodMs = 20; // packets last as long, mostly

constexpr char kNoClock[] = "no clock";

audio *audios[kAudios];
uint32_t audio_count;

using step = int16_t[kStepSamples];

// What is to be heard of each session, and all of it together. @return whether any session listens.
bool audio_receive(audio *sound, uint64_t position, step *in, int16_t *heard) {
    bool listens = false;
    for (uint32_t i = 0; i < kSessions; i++) {
        if (!session_receives(&sound->sessions[i]))
            continue;
        listens = true;
        session_take(&sound->sessions[i], position, in[i]);
        frame_add(heard, in[i], kStepSamples);
    }
    frame_scale(heard, kStepSamples, sound->heard_factor);
    return listens;
}

// Everybody in a conference but the one who is sent it.
void conference_add(const audio *sound, uint32_t to, const step *in, int16_t *out) {
    const uint32_t context = sound->sessions[to].media.context;
    for (uint32_t other = 0; other < kSessions; other++)
        if (other != to && context != 0 && sound->sessions[other].media.context == context)
            frame_add(out, in[other], kStepSamples);
}

bool audio_is_open(const audio *sound) {
    for (const media_session &session : sound->sessions)
        if (session.open)
            return true;
    return false;
}

// The voice is for others: without media nobody speaks.
void audio_speak(audio *sound, uint64_t position, int16_t *said) {
    if (!ends_take(&sound->ends, position, said) && audio_is_open(sound))
        tone_generator_next(&sound->voice, said, kStepSamples);
    tone_player_add(&sound->tone, said, kStepSamples);
    frame_scale(said, kStepSamples, sound->said_factor);
}

void audio_send(audio *sound, uint64_t position, const step *in, const int16_t *said) {
    for (uint32_t i = 0; i < kSessions; i++) {
        media_session *session = &sound->sessions[i];
        if (session_sends(session)) {
            step out;
            memcpy(out, said, sizeof out);
            conference_add(sound, i, in, out);
            session_send(session, position, out);
        }
        if (session->open)
            session_tick(session);
    }
}

void audio_listen(audio *sound, const int16_t *heard) {
    if (!tone_detector_listen(&sound->detector, heard, kStepSamples))
        return;
    char name[sizeof sound->heard];
    uint32_t found[kDetectorTones];
    const uint32_t count = tone_detector_find(&sound->detector, found);
    tone_frequencies_write(found, count, name, sizeof name);
    bool again = strcmp(name, sound->candidate) == 0; // once may be the edge of a tone
    memcpy(sound->candidate, name, sizeof name);
    if (again && strcmp(name, sound->heard) != 0) {
        memcpy(sound->heard, name, sizeof name);
        sound->hears(sound, name);
    }
}

// Whether it needs the clock.
bool audio_is_active(const audio *sound) {
    return audio_is_open(sound) || ends_are_used(&sound->ends);
}

void audio_step(audio *sound, uint64_t position) {
    step heard = {}, said = {}, in[kSessions] = {};
    const bool listens = audio_receive(sound, position, in, heard);
    audio_speak(sound, position, said);
    audio_send(sound, position, in, said);
    if (listens)
        audio_listen(sound, heard);
    ends_step(&sound->ends, position, heard, said);
}

// How often the process is to be woken: never while no line needs it, no more often than packets are due.
uint32_t period_needed(const line_media_t *more) {
    uint32_t period = more == nullptr ? 0 : more->ptime_ms;
    bool is_short = period % kPeriodMs != 0;
    for (uint32_t i = 0; i < audio_count; i++) {
        if (audio_is_active(audios[i]))
            period = kPeriodMs;
        for (const media_session &session : audios[i]->sessions)
            is_short = is_short || (session.open && session.media.ptime_ms % kPeriodMs != 0);
    }
    return period == 0 ? 0 : is_short ? kStepMs : kPeriodMs;
}

bool clock_adapt() {
    return sampling_clock_run(period_needed(nullptr));
}

void audios_step(uint64_t position) {
    for (uint32_t i = 0; i < audio_count; i++)
        if (audio_is_active(audios[i]))
            audio_step(audios[i], position);
    clock_adapt(); // a source may have come to its end
}

void audios_skip(uint64_t) {
    for (uint32_t i = 0; i < audio_count; i++)
        for (media_session &session : audios[i]->sessions)
            if (session.open)
                session_skip(&session);
}

constexpr sampling_listener kListener = {audios_skip, audios_step};

void detector_reset(audio *sound) {
    sound->detector.used = 0;
    sound->candidate[0] = 0;
    sound->heard[0] = 0;
}

media_session *session_at(audio *sound, uint32_t index) {
    return index < kSessions && sound->sessions[index].open ? &sound->sessions[index] : nullptr;
}

} // namespace

void audio_begin(kex_t *bus, const char *host) {
    sampling_clock_begin(bus, &kListener);
    session_begin(bus, host);
}

void audio_start(audio *sound, const char *who, uint32_t frequency, void (*hears)(const audio *, const char *)) {
    snprintf(sound->who, sizeof sound->who, "%s", who);
    sound->voice.frequency = frequency;
    sound->settings = kJitterSettings;
    sound->heard_factor = sound->said_factor = 1;
    sound->hears = hears;
    if (audio_count < kAudios)
        audios[audio_count++] = sound;
}

const char *audio_open(audio *sound, uint32_t index, const line_media_t *media) {
    if (index >= kSessions)
        return "no such line";
    if (sound->sessions[index].open)
        return "media is set up already";
    const char *wrong = sampling_clock_run(period_needed(media)) ? nullptr : kNoClock;
    if (wrong == nullptr)
        wrong = session_open(&sound->sessions[index], sound->who, &sound->settings, media);
    if (wrong == nullptr)
        detector_reset(sound);
    else
        clock_adapt();
    return wrong;
}

const char *audio_change(audio *sound, uint32_t index, const line_media_t *media) {
    media_session *session = session_at(sound, index);
    const char *wrong = session == nullptr ? "there is no media to change" : session_change(session, media);
    if (wrong != nullptr)
        return wrong;
    detector_reset(sound);
    clock_adapt();
    return nullptr;
}

bool audio_close(audio *sound, uint32_t index, line_statistics_t *statistics) {
    media_session *session = session_at(sound, index);
    if (session == nullptr)
        return false;
    session_close(session);
    if (statistics != nullptr)
        *statistics = session_statistics(session);
    detector_reset(sound);
    clock_adapt();
    return true;
}

const char *audio_set_source(audio *sound, const sound_source *source) {
    sound->ends.source = source != nullptr ? *source : sound_source{};
    if (clock_adapt())
        return nullptr;
    sound->ends.source = {};
    return kNoClock;
}

const char *audio_add_sink(audio *sound, const sound_sink *sink) {
    if (!ends_add_sink(&sound->ends, sink))
        return "so many listen already";
    if (clock_adapt())
        return nullptr;
    ends_remove_sink(&sound->ends, sink->userdata);
    return kNoClock;
}

void audio_remove_sink(audio *sound, const void *userdata) {
    ends_remove_sink(&sound->ends, userdata);
    clock_adapt();
}

void audio_event(const audio *sound, const char *text) {
    ends_event(&sound->ends, text);
}

uint32_t audio_wait_ms(const audio *sound) {
    for (const media_session &session : sound->sessions)
        if (session_receives(&session))
            return session.buffer.counts.last * 1000 / kSampleRate;
    return 0;
}

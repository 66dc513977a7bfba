// SPDX-License-Identifier: MIT
// Sound of simulated telephones and channels: one clock, what is spoken, heard and mixed.
#include "audio.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr uint32_t kPeriodMs = 20; // packets last as long, mostly

constexpr char kNoClock[] = "no clock";

audio *audios[kAudios];
uint32_t audio_count;

using step = int16_t[kStepSamples];

// What is to be heard of each session, and all of it together with the tone.
void audio_receive(audio *sound, uint64_t position, step *in, int16_t *heard) {
    for (uint32_t i = 0; i < kSessions; i++) {
        if (!session_receives(&sound->sessions[i]))
            continue;
        session_take(&sound->sessions[i], position, in[i]);
        frame_add(heard, in[i], kStepSamples);
    }
    tone_player_add(&sound->receiver, heard, kStepSamples);
    frame_scale(heard, kStepSamples, sound->heard_factor);
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

// Whether it needs the clock.
bool audio_is_active(const audio *sound) {
    return audio_is_open(sound) || sound->receiver.pattern.count > 0 || !sound_detector_is_idle(&sound->detector) ||
           ends_are_used(&sound->ends);
}

void audio_step(audio *sound, uint64_t position) {
    step heard = {}, said = {}, in[kSessions] = {};
    audio_receive(sound, position, in, heard);
    audio_speak(sound, position, said);
    audio_send(sound, position, in, said);
    if (sound_detector_take(&sound->detector, heard))
        sound->hears(sound, sound->detector.said);
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
    sound_detector_begin(&sound->detector, "DE");
    for (uint32_t i = 0; i < audio_count; i++)
        if (audios[i] == sound)
            return;
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
        sound_detector_forget_voices(&sound->detector);
    else
        clock_adapt();
    return wrong;
}

const char *audio_change(audio *sound, uint32_t index, const line_media_t *media) {
    media_session *session = session_at(sound, index);
    const char *wrong = session == nullptr ? "there is no media to change" : session_change(session, media);
    if (wrong != nullptr)
        return wrong;
    sound_detector_forget_voices(&sound->detector);
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
    sound_detector_forget_voices(&sound->detector);
    clock_adapt();
    return true;
}

bool audio_set_country(audio *sound, const char *country) {
    if (strcmp(sound->detector.country, country) == 0)
        return false;
    sound_detector_begin(&sound->detector, country);
    return true;
}

bool audio_play(audio *sound, const tone_pattern *tone) {
    tone_player_start(&sound->receiver, tone);
    if (clock_adapt())
        return true;
    tone_player_stop(&sound->receiver);
    return false;
}

void audio_stop(audio *sound) {
    tone_player_stop(&sound->receiver);
    clock_adapt();
}

void audio_learn_list(audio *sound, const char *name, const tone_pattern *list) {
    sound_detector_set_list(&sound->detector, name, list);
}

void audio_forget(audio *sound) {
    sound_detector_forget(&sound->detector);
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

// SPDX-License-Identifier: MIT
// What is heard on a line.
#include "sound_detector.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr double kSilenceMs = 200;  // after which silence is said
constexpr uint32_t kOddBursts = 3;  // so many bursts in a row that are no tone are named by their frequencies
constexpr uint32_t kIdleSteps = 25; // until filters and voices have forgotten the last sound

// Twice the same, since once may be the edge of a tone. @return whether the voices are others now
bool voices_find(sound_detector *detector, const int16_t *samples) {
    uint32_t found[kDetectorTones], count = 0;
    char name[sizeof detector->voices];
    if (!tone_detector_listen(&detector->voice, samples, kStepSamples))
        return false;
    const uint32_t all = tone_detector_find(&detector->voice, found);
    for (uint32_t i = 0; i < all; i++)
        if (detector->missed >= kOddBursts || !country_detector_hears(&detector->tones, found[i]))
            found[count++] = found[i];
    tone_frequencies_write(found, count, name, sizeof name);
    const bool again = strcmp(name, detector->candidate) == 0;
    memcpy(detector->candidate, name, sizeof name);
    if (!again || strcmp(name, detector->voices) == 0)
        return false;
    memcpy(detector->voices, name, sizeof name);
    return true;
}

void tones_write(const sound_detector *detector, char *text, size_t size) {
    size_t used = 0;
    text[0] = 0;
    for (uint32_t tone = 0; tone < kCadences; tone++) {
        if ((detector->tones.found >> tone & 1) == 0)
            continue;
        const char *word = tone < TONES ? network_tone_word(static_cast<network_tone>(tone)) : detector->list_name;
        const int length = snprintf(text + used, size - used, "%s%s", used == 0 ? "" : " or ", word);
        used += static_cast<size_t>(length);
        if (used >= size)
            return;
    }
}

bool text_say(sound_detector *detector, const char *text) {
    if (strcmp(detector->said, text) == 0)
        return false;
    snprintf(detector->said, sizeof detector->said, "%s", text);
    return true;
}

bool tones_follow(sound_detector *detector, const int16_t *samples) {
    const uint32_t before = detector->tones.found;
    char text[kHeardBytes];
    country_detector_take(&detector->tones, samples);
    const bool follows = country_detector_follows(&detector->tones);
    if (detector->followed && !follows && before == 0)
        detector->missed++;
    detector->followed = follows;
    if (country_detector_sounds(&detector->tones))
        detector->sounded = country_detector_now(&detector->tones);
    if (detector->tones.found == before)
        return false;
    if (detector->tones.found != 0) {
        detector->missed = 0;
        tones_write(detector, text, sizeof text);
        return text_say(detector, text);
    }
    // A voice that came behind the tone has been said.
    return detector->voices[0] != 0 && text_say(detector, detector->voices);
}

bool silence_follow(sound_detector *detector) {
    const bool waits = detector->followed || detector->voices[0] != 0 ||
                       country_detector_now(&detector->tones) - detector->sounded < kSilenceMs;
    return !waits && text_say(detector, "");
}

bool step_is_silent(const int16_t *samples) {
    for (uint32_t i = 0; i < kStepSamples; i++)
        if (samples[i] != 0)
            return false;
    return true;
}

} // namespace

void sound_detector_begin(sound_detector *detector, const char *country) {
    snprintf(detector->country, sizeof detector->country, "%s", country);
    country_detector_learn(&detector->tones, country, nullptr);
    sound_detector_forget(detector);
}

void sound_detector_set_list(sound_detector *detector, const char *name, const tone_pattern *list) {
    snprintf(detector->list_name, sizeof detector->list_name, "%s", name);
    country_detector_learn(&detector->tones, detector->country, list);
    sound_detector_forget(detector);
}

void sound_detector_forget(sound_detector *detector) {
    country_detector_forget(&detector->tones);
    detector->sounded = 0;
    detector->followed = false;
    detector->missed = 0;
    detector->idle = kIdleSteps;
    detector->said[0] = 0;
    sound_detector_forget_voices(detector);
}

void sound_detector_forget_voices(sound_detector *detector) {
    detector->voice.used = 0;
    detector->candidate[0] = 0;
    if (detector->voices[0] != 0 && strcmp(detector->said, detector->voices) == 0)
        detector->said[0] = 0;
    detector->voices[0] = 0;
}

bool sound_detector_take(sound_detector *detector, const int16_t *samples) {
    const bool is_silent = step_is_silent(samples);
    if (is_silent && sound_detector_is_idle(detector))
        return false;
    bool news = voices_find(detector, samples) && detector->voices[0] != 0 && text_say(detector, detector->voices);
    news = tones_follow(detector, samples) || news;
    news = silence_follow(detector) || news;
    const bool waits = detector->followed || detector->candidate[0] != 0 || detector->said[0] != 0 || !is_silent;
    detector->idle = waits ? 0 : detector->idle + 1;
    return news;
}

bool sound_detector_is_idle(const sound_detector *detector) {
    return detector->idle >= kIdleSteps;
}

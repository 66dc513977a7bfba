// SPDX-License-Identifier: MIT
// Tones of a country: learned, and followed in what is heard.
#include "country_detector.h"

#include "country_tones.h"

#include <initializer_list>
#include <string.h>

namespace {

constexpr double kEdgeMs = 60;   // within which a burst's end is seen
constexpr float kSilent = 0.25F; // of a burst's level, for a pause in which nobody speaks
constexpr float kSteady = 0.3F;  // of its loudness, for one in which there is a voice of the simulators
constexpr float kAlone = 0.5F;   // of all sound, for a burst that is most of it

// ---------------------------------------------------------------------------------------------------------- Learning

// @return kSounds: there is no room
uint32_t sound_add(country_detector *detector, const tone_element *element) {
    tone_sound sound;
    if (!tone_sound_make(&sound, &detector->filters, element->first, element->second, element->modulates))
        return kSounds;
    for (uint32_t i = 0; i < detector->sound_count; i++)
        if (tone_sound_is_equal(&detector->sounds[i], &sound))
            return i;
    if (detector->sound_count == kSounds)
        return kSounds;
    detector->sounds[detector->sound_count] = sound;
    return detector->sound_count++;
}

// Takes an element as a burst, or as the pause behind one. @return no: there is no room
bool element_learn(country_detector *detector, const tone_element *element, cadence *tone) {
    cadence_burst *last = tone->count > 0 ? &tone->bursts[tone->count - 1] : nullptr;
    tone->period_ms += element->ms;
    if (element->first == 0) {
        if (last != nullptr) // a pause at the begin sounds like none
            last->gap_ms += element->ms;
        return true;
    }
    const uint32_t sound = sound_add(detector, element);
    if (sound == kSounds)
        return false;
    if (last != nullptr && last->sound == sound && last->gap_ms == 0) {
        last->ms += element->ms;
        return true;
    }
    if (tone->count == kBursts)
        return false;
    tone->bursts[tone->count++] = {sound, element->ms, 0, element->level, 0, 0};
    return true;
}

// A single burst that is repeated without a pause does not end.
void burst_last_join(cadence *tone) {
    cadence_burst *last = tone->count == tone->again + 1 ? &tone->bursts[tone->again] : nullptr;
    if (last == nullptr || last->gap_ms > 0)
        return;
    tone->period_ms -= last->ms;
    last->ms = 0;
}

// Where a repetition ends with the sound that it begins with, and no pause, the two are one burst: it is the last of the
// repetition, which begins with the second.
void burst_ends_join(cadence *tone) {
    if (tone->count < tone->again + 2)
        return;
    const cadence_burst *first = &tone->bursts[tone->again];
    cadence_burst *last = &tone->bursts[tone->count - 1];
    if (last->gap_ms > 0 || last->sound != first->sound)
        return;
    last->ms += first->ms;
    last->gap_ms = first->gap_ms;
    tone->again++;
}

void cadence_learn(country_detector *detector, const tone_pattern *pattern, cadence *tone) {
    *tone = {};
    for (uint32_t i = 0; i < pattern->count; i++) {
        if (i == pattern->again)
            tone->again = tone->count;
        if (!element_learn(detector, &pattern->elements[i], tone)) {
            tone->count = 0;
            return;
        }
    }
    if (tone->again >= tone->count)
        tone->again = 0;
    burst_last_join(tone);
    burst_ends_join(tone);
}

void tones_learn(country_detector *detector, const char *country) {
    for (uint32_t i = 0; i < TONES; i++) {
        const tone_pattern pattern = tone_pattern_read(country_tone(country, static_cast<network_tone>(i))->text);
        cadence_learn(detector, &pattern, &detector->cadences[i]);
    }
}

// --------------------------------------------------------------------------------------------------------- Following

// Whether nobody but a simulator, whose voice is steady, spoke in the pause of a tone that ends at a moment.
bool pause_is_calm(const country_detector *detector, const cadence_match *match, double until) {
    const loudness_range range = country_detector_loudness(detector, match->since + kEdgeMs, until - kEdgeMs / 2);
    return range.most < kSilent * match->level || range.most - range.least < kSteady * range.most;
}

void bursts_follow(country_detector *detector) {
    tone_burst_news news[kSounds];
    for (uint32_t i = 0; i < detector->sound_count; i++)
        news[i] = tone_burst_take(&detector->bursts[i], &detector->sounds[i], &detector->filters);
    auto tell = [&](uint32_t sound, bool begins) {
        const tone_burst *burst = &detector->bursts[sound];
        for (uint32_t i = 0; i < kCadences; i++) {
            if (begins)
                cadence_begin(&detector->matches[i], &detector->cadences[i], sound, burst->begin * kSlotMs,
                              pause_is_calm(detector, &detector->matches[i], burst->begin * kSlotMs));
            else
                cadence_end(&detector->matches[i], &detector->cadences[i], sound, burst->end * kSlotMs, burst->level,
                            burst->level > kAlone * burst->loudness);
        }
    };
    for (uint32_t i = 0; i < detector->sound_count; i++)
        if (news[i].ends && !news[i].begins)
            tell(i, false);
    for (uint32_t i = 0; i < detector->sound_count; i++)
        if (news[i].begins)
            tell(i, true);
    for (uint32_t i = 0; i < detector->sound_count; i++)
        if (news[i].ends && news[i].begins)
            tell(i, false);
}

} // namespace

void country_detector_learn(country_detector *detector, const char *country, const tone_pattern *list) {
    tone_filters_begin(&detector->filters);
    detector->sound_count = 0;
    tones_learn(detector, country);
    detector->cadences[TONES] = {};
    if (list != nullptr)
        cadence_learn(detector, list, &detector->cadences[TONES]);
    cadences_part(detector->cadences, kCadences);
    for (uint32_t i = 0; i < detector->sound_count; i++)
        tone_sound_part(&detector->sounds[i], &detector->filters);
    country_detector_forget(detector);
}

void country_detector_forget(country_detector *detector) {
    memset(detector->bursts, 0, sizeof detector->bursts);
    memset(detector->matches, 0, sizeof detector->matches);
    memset(detector->loudness, 0, sizeof detector->loudness);
    tone_filters_forget(&detector->filters);
    detector->found = 0;
    detector->found_first = detector->found_burst = 0;
}

void country_detector_take(country_detector *detector, const int16_t *samples) {
    for (uint32_t slot = 0; slot < kStepSamples / kSlotSamples; slot++) {
        tone_filters_take(&detector->filters, samples + slot * kSlotSamples);
        bursts_follow(detector);
    }
    detector->loudness[static_cast<uint32_t>(country_detector_now(detector) / kStepMs) % kLoudnessSteps] =
        detector->filters.loudness;
    const bool quiet = !country_detector_sounds(detector);
    for (uint32_t i = 0; i < kCadences; i++)
        cadence_check(&detector->matches[i], &detector->cadences[i], country_detector_now(detector), quiet);
    country_tones_decide(detector);
}

double country_detector_now(const country_detector *detector) {
    return static_cast<double>(detector->filters.slots) * kSlotMs;
}

loudness_range country_detector_loudness(const country_detector *detector, double from, double until) {
    const double now = country_detector_now(detector), ring = (kLoudnessSteps - 1) * kStepMs;
    const double kept = now > ring ? now - ring : 0;
    const double first = (from > kept ? from : kept) / kStepMs;
    loudness_range range = {-1, 0};
    for (uint32_t i = 0; first + i < until / kStepMs; i++) {
        const float loudness = detector->loudness[static_cast<uint32_t>(first + i) % kLoudnessSteps];
        range.least = range.least < 0 || loudness < range.least ? loudness : range.least;
        range.most = loudness > range.most ? loudness : range.most;
    }
    return range;
}

bool country_detector_sounds(const country_detector *detector) {
    for (uint32_t i = 0; i < detector->sound_count; i++)
        if (detector->bursts[i].state == BURST_RISING || detector->bursts[i].state == BURST_SOUNDS)
            return true;
    return false;
}

bool country_detector_hears(const country_detector *detector, uint32_t frequency) {
    constexpr uint32_t kNear = 20, kSlots = 50; // Hz, 250 ms
    for (uint32_t i = 0; i < detector->sound_count; i++) {
        if (detector->bursts[i].newest == 0 || detector->bursts[i].newest + kSlots < detector->filters.slots)
            continue;
        for (uint32_t filter : {detector->sounds[i].first, detector->sounds[i].second}) {
            const uint32_t own = filter < kFilters ? detector->filters.frequency[filter] : 0;
            if (frequency + kNear > own && frequency < own + kNear)
                return true;
        }
    }
    return false;
}

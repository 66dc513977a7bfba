// SPDX-License-Identifier: MIT
// Bursts of a sound.
#include "tone_burst.h"

#include "tone_purity.h"

#include <initializer_list>

namespace {

constexpr float kSoftest = 100;      // amplitude that is heard
constexpr float kBesideAll = 0.12F;  // and in proportion to all sound
constexpr float kHalf = 0.5F;        // of its level, where a burst begins and ends
constexpr float kTogether = 0.5F;    // of the louder frequency, for the softer one
constexpr float kBeside = 0.42F;     // of its own, for a frequency that must be silent
constexpr float kBesideShort = 0.8F; // the same in a burst too short to tell
constexpr float kSide = 0.35F;       // of the carrier, for a side band; full modulation has 0.5
constexpr float kOwn = 0.5F;         // of what the envelope shows, for what has the right frequency
constexpr uint32_t kNearHz = 30, kFarHz = 100;
constexpr uint32_t kPauseSlots = 7;    // 35 ms: what is softer for a shorter time is a beat
constexpr uint32_t kShortestSlots = 6; // of a burst
constexpr uint32_t kExactSlots = 25;   // 125 ms tell 16 Hz
constexpr uint32_t kSureSlots = kExactSlots + 3;
constexpr uint32_t kMostDoubts = 6; // three times wrong, or half of the time
constexpr uint32_t kLevels = 2 * kEnvelopeSlots;

float louder(float one, float other) {
    return one > other ? one : other;
}

bool has(uint64_t filters, uint32_t filter) {
    return (filters >> filter & 1) != 0;
}

float level_of(const tone_sound *sound, const tone_filters *filters) {
    const float first = filters->envelope[sound->first];
    if (sound->second == kFilters)
        return first;
    const float second = filters->envelope[sound->second];
    return first < second ? first : second;
}

// Loud enough, and nothing beside it that belongs to another tone.
bool is_present(const tone_sound *sound, const tone_filters *filters, float level) {
    if (level < kSoftest || level < kBesideAll * filters->loudness)
        return false;
    for (uint32_t filter = 0; sound->far >> filter != 0; filter++)
        if (has(sound->far, filter) && filters->envelope[filter] > kHalf * level)
            return false;
    return true;
}

// Whether the frequencies are those of the sound, in so many slots.
bool is_right(const tone_sound *sound, const tone_filters *filters, float level, uint32_t count, uint32_t skipped) {
    auto amplitude = [&](uint32_t filter) { return tone_filters_amplitude(filters, filter, count, skipped); };
    const float first = amplitude(sound->first);
    const float second = sound->second == kFilters ? first : amplitude(sound->second);
    const float loudest = louder(first, second);
    if (first < kTogether * loudest || second < kTogether * loudest || loudest < kOwn * kHalf * level)
        return false;
    if (sound->side != kFilters && amplitude(sound->side) < kSide * first)
        return false;
    const float beside = count >= kExactSlots ? kBeside : kBesideShort;
    for (uint32_t filter = 0; sound->near >> filter != 0; filter++)
        if (has(sound->near, filter) && amplitude(filter) > beside * loudest)
            return false;
    return tone_is_pure(sound, filters, count, skipped);
}

// The moment at which the level passed the half of the burst's, from the newest slot back.
double passing_find(const tone_burst *burst, uint64_t newest, bool rising) {
    const float half = kHalf * burst->level;
    for (uint32_t back = 1; back < kLevels; back++) {
        const float later = burst->levels[(newest - back + 1) % kLevels],
                    earlier = burst->levels[(newest - back) % kLevels];
        if (rising ? earlier < half && later >= half : earlier >= half && later < half)
            return static_cast<double>(newest - back) + static_cast<double>((half - earlier) / (later - earlier));
    }
    return static_cast<double>(newest - (kLevels - 1));
}

void rise(tone_burst *burst, const tone_sound *sound, const tone_filters *filters, bool present,
          tone_burst_news *news) {
    burst->slots++;
    if (burst->slots == kEnvelopeSlots)
        burst->begin = passing_find(burst, filters->slots, true);
    if (burst->slots >= kSureSlots && burst->soft == 0) {
        burst->doubts = 0;
        news->begins = is_right(sound, filters, burst->level, kExactSlots, 0);
        burst->state = news->begins ? BURST_SOUNDS : BURST_OTHER;
    } else if (burst->soft >= kPauseSlots || (!present && burst->slots < kShortestSlots)) {
        const uint32_t sounded = burst->slots - burst->soft;
        burst->state = BURST_NONE;
        if (burst->slots < kEnvelopeSlots || sounded < kShortestSlots ||
            !is_right(sound, filters, burst->level, sounded, burst->soft))
            return;
        burst->end = passing_find(burst, filters->slots, false);
        news->begins = news->ends = true;
    }
}

void sound_on(tone_burst *burst, const tone_sound *sound, const tone_filters *filters, tone_burst_news *news) {
    burst->slots++;
    if (burst->soft >= kPauseSlots) {
        burst->end = passing_find(burst, filters->slots, false);
        burst->state = BURST_NONE;
        news->ends = true;
    } else if (burst->soft == 0 && burst->slots % (kExactSlots / 2) == 0) {
        if (!is_right(sound, filters, burst->level, kExactSlots, 0))
            burst->doubts += 2;
        else if (burst->doubts > 0)
            burst->doubts--;
        if (burst->doubts < kMostDoubts)
            return;
        burst->end = static_cast<double>(filters->slots - kExactSlots);
        burst->state = BURST_OTHER;
        news->ends = true;
    }
}

// Another sound may pass into this one without a pause.
void other_on(tone_burst *burst, const tone_sound *sound, const tone_filters *filters, tone_burst_news *news) {
    burst->slots++;
    if (burst->soft >= kPauseSlots) {
        burst->state = BURST_NONE;
    } else if (burst->slots % kExactSlots == 0 && is_right(sound, filters, burst->level, kExactSlots, 0)) {
        burst->begin = static_cast<double>(filters->slots - kExactSlots);
        burst->doubts = 0;
        burst->state = BURST_SOUNDS;
        news->begins = true;
    }
}

} // namespace

bool tone_sound_make(tone_sound *sound, tone_filters *filters, uint32_t first, uint32_t second, bool modulates) {
    *sound = {tone_filters_add(filters, first), kFilters, kFilters, 0, 0};
    if (second == 0)
        return sound->first != kFilters;
    if (!modulates) {
        sound->second = tone_filters_add(filters, second);
        return sound->first != kFilters && sound->second != kFilters;
    }
    sound->side = tone_filters_add(filters, first + second);
    return sound->first != kFilters && sound->side != kFilters;
}

void tone_sound_part(tone_sound *sound, const tone_filters *filters) {
    sound->near = sound->far = 0;
    for (uint32_t filter = 0; filter < filters->count; filter++) {
        if (filter == sound->first || filter == sound->second || filter == sound->side)
            continue;
        for (uint32_t own : {sound->first, sound->second}) {
            if (own == kFilters)
                continue;
            const uint32_t one = filters->frequency[own], other = filters->frequency[filter];
            const uint32_t apart = one > other ? one - other : other - one;
            (apart < kNearHz ? sound->near : sound->far) |= apart <= kFarHz ? uint64_t{1} << filter : 0;
        }
    }
    sound->far &= ~sound->near;
}

bool tone_sound_is_equal(const tone_sound *one, const tone_sound *other) {
    return one->first == other->first && one->second == other->second && one->side == other->side;
}

tone_burst_news tone_burst_take(tone_burst *burst, const tone_sound *sound, const tone_filters *filters) {
    tone_burst_news news = {};
    const float level = level_of(sound, filters);
    const bool present = is_present(sound, filters, level);
    burst->levels[filters->slots % kLevels] = present ? level : 0;
    if (burst->state == BURST_NONE) {
        if (!present)
            return news;
        burst->state = BURST_RISING;
        burst->slots = burst->soft = 0;
        burst->level = burst->loudness = 0;
    }
    burst->level = louder(burst->level, level);
    burst->loudness = louder(burst->loudness, filters->loudness);
    burst->soft = present && level >= kHalf * burst->level ? 0 : burst->soft + 1;
    if (burst->state == BURST_RISING)
        rise(burst, sound, filters, present, &news);
    else if (burst->state == BURST_SOUNDS)
        sound_on(burst, sound, filters, &news);
    else
        other_on(burst, sound, filters, &news);
    if (burst->state == BURST_RISING || burst->state == BURST_SOUNDS)
        burst->newest = filters->slots;
    return news;
}

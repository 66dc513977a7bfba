// SPDX-License-Identifier: MIT
// Tones by their bursts.
#include "cadence.h"

#include <math.h>
#include <string.h>

namespace {

constexpr uint32_t kNearLeast = 8, kNearPlain = 40; // ms
constexpr uint32_t kBurstNearMost = 100, kGapNearMost = 250;
constexpr float kLevelNear = 5; // dB
// Bursts and pauses that must have matched: of a tone that was entered in its middle, where somebody speaks, and more than
// those that belonged to another tone.
constexpr uint32_t kNeedsMiddle = 3, kNeedsSpeech = 5, kNeedsMore = 2;
constexpr uint32_t kEndNewsMs = 60;    // after which an end is known
constexpr uint32_t kQuietMs = 40;      // after which it is known that nothing has begun
constexpr uint32_t kBeginNewsMs = 180; // after which a begin is known

uint32_t apart(uint32_t one, uint32_t other) {
    return one > other ? one - other : other - one;
}

uint32_t more(uint32_t one, uint32_t other) {
    return one > other ? one : other;
}

// Less than the half of the way to the next length that a tone has there.
uint32_t near_of(uint32_t length, uint32_t next, uint32_t most) {
    uint32_t near = length / 12 > kNearPlain ? length / 12 : kNearPlain;
    near = near < most ? near : most;
    const uint32_t limit = next * 9 / 20 > kNearLeast ? next * 9 / 20 : kNearLeast;
    return near < limit ? near : limit;
}

void burst_part(cadence_burst *burst, const cadence *cadences, uint32_t count) {
    uint32_t next = UINT32_MAX / 32, next_gap = next;
    for (uint32_t i = 0; i < count; i++)
        for (uint32_t k = 0; k < cadences[i].count; k++) {
            const cadence_burst *other = &cadences[i].bursts[k];
            if (other->sound != burst->sound || other->ms == 0)
                continue;
            if (other->ms != burst->ms && apart(other->ms, burst->ms) < next)
                next = apart(other->ms, burst->ms);
            if (other->gap_ms != burst->gap_ms && apart(other->gap_ms, burst->gap_ms) < next_gap)
                next_gap = apart(other->gap_ms, burst->gap_ms);
        }
    burst->ms_near = near_of(burst->ms, next, kBurstNearMost);
    burst->gap_near = near_of(burst->gap_ms, next_gap, kGapNearMost);
}

bool is_near(double length, uint32_t wanted, uint32_t near) {
    return length > static_cast<double>(wanted) - near && length < static_cast<double>(wanted) + near;
}

void place_enter_middle(cadence_place *place) {
    place->exact = false;
    place->needs = more(place->needs, kNeedsMiddle);
}

// As much louder or softer than the burst before as it should be.
bool level_is_near(const cadence_match *match, const cadence *tone, uint32_t burst, float level) {
    const uint32_t before = match->places[burst].before;
    if (before == kBursts || match->level <= 0)
        return true;
    const float wanted = static_cast<float>(tone->bursts[burst].level - tone->bursts[before].level) / 10;
    return fabsf(20 * log10f(level / match->level) - wanted) < kLevelNear;
}

// The burst of which this one is the next: the one before it, or the last of a repetition, whichever more has matched for;
// kBursts: there is none.
uint32_t burst_before(const cadence_match *match, const cadence *tone, uint32_t burst, double pause) {
    const uint32_t candidates[] = {burst > 0 ? burst - 1 : tone->count - 1,
                                   burst == tone->again ? tone->count - 1 : kBursts};
    uint32_t best = kBursts;
    for (uint32_t before : candidates) {
        if (before >= kBursts || (burst == 0 && tone->again != 0))
            continue;
        const cadence_burst *known = &tone->bursts[before];
        if (match->places[before].alive && is_near(pause, known->gap_ms, known->gap_near) &&
            (best == kBursts || match->places[before].matched > match->places[best].matched))
            best = before;
    }
    return best;
}

} // namespace

void cadences_part(cadence *cadences, uint32_t count) {
    for (uint32_t i = 0; i < count; i++)
        for (uint32_t k = 0; k < cadences[i].count; k++)
            burst_part(&cadences[i].bursts[k], cadences, count);
}

bool cadence_is_equal(const cadence *one, const cadence *other) {
    bool equal = one->count == other->count && one->again == other->again;
    for (uint32_t i = 0; equal && i < one->count; i++)
        equal = one->bursts[i].sound == other->bursts[i].sound && one->bursts[i].ms == other->bursts[i].ms &&
                one->bursts[i].gap_ms == other->bursts[i].gap_ms;
    return equal;
}

void cadence_begin(cadence_match *match, const cadence *tone, uint32_t sound, double moment, bool calm) {
    cadence_place places[kBursts] = {};
    bool fits = false;
    for (uint32_t i = 0; i < tone->count; i++) {
        if (tone->bursts[i].sound != sound)
            continue;
        const uint32_t before = match->sounds ? kBursts : burst_before(match, tone, i, moment - match->since);
        const cadence_place *place = &match->places[before % kBursts];
        fits = true;
        // A first burst is a begin of its own, unless those before it are from a begin on as well.
        if (before != kBursts && (place->exact || i > 0 || place->matched + 1 >= place->needs))
            places[i] = {true,   place->exact, more(place->needs, calm ? 0 : kNeedsSpeech), place->matched + 1,
                         before, place->first};
        else
            places[i] = {true, i == 0, i == 0 ? 0 : kNeedsMiddle, 0, kBursts, moment};
    }
    if (!fits)
        return;
    memcpy(match->places, places, sizeof places);
    match->sounds = true;
    match->since = match->begun = moment;
}

void cadence_end(cadence_match *match, const cadence *tone, uint32_t sound, double moment, float level, bool alone) {
    if (!match->sounds)
        return;
    const double length = moment - match->since;
    bool was_it = false;
    for (uint32_t i = 0; i < tone->count; i++) {
        cadence_place *place = &match->places[i];
        const cadence_burst *burst = &tone->bursts[i];
        if (!place->alive || burst->sound != sound)
            continue;
        was_it = true;
        if (burst->ms == 0 || length < burst->ms + burst->ms_near)
            match->own = match->since;
        if (burst->ms > 0 && is_near(length, burst->ms, burst->ms_near) && level_is_near(match, tone, i, level))
            place->matched++;
        else if (place->matched > 0 || burst->ms == 0 || length > burst->ms)
            place->alive = false;
        else
            place_enter_middle(place); // it may have been entered in the middle of a burst
    }
    if (!was_it)
        return;
    match->sounds = false;
    match->since = moment;
    match->level = level;
    match->alone = alone;
}

void cadence_check(cadence_match *match, const cadence *tone, double now, bool quiet) {
    for (uint32_t i = 0; i < tone->count; i++) {
        cadence_place *place = &match->places[i];
        const cadence_burst *burst = &tone->bursts[i];
        const uint32_t most = match->sounds ? burst->ms + burst->ms_near + kEndNewsMs
                                            : burst->gap_ms + burst->gap_near + (quiet ? kQuietMs : kBeginNewsMs);
        if (place->alive && !(match->sounds && burst->ms == 0) && now - match->since > most)
            place->alive = false;
    }
}

void cadence_doubt(cadence_match *match, const cadence *tone, double until) {
    for (uint32_t i = 0; i < tone->count; i++)
        if (match->places[i].first <= until)
            match->places[i].needs = more(match->places[i].needs, match->places[i].matched + kNeedsMore);
}

bool cadence_place_is_credible(const cadence_place *place) {
    return place->alive && place->matched >= place->needs;
}

bool cadence_may_become(const cadence_match *match, const cadence *tone, double since) {
    bool may = false;
    for (uint32_t i = 0; i < tone->count; i++) {
        const cadence_place *place = &match->places[i];
        may = may || (place->alive && place->exact && !cadence_place_is_credible(place));
    }
    return may && match->begun >= since;
}

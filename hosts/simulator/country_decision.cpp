// SPDX-License-Identifier: MIT
// Which tones it is that are heard.
#include "country_detector.h"

namespace {

constexpr uint32_t kPauseMs = 500;     // of a pause, that says that a burst was not cut off
constexpr double kDecidedMs = 160;     // behind a period
constexpr double kFilterMs = 20;       // by which an envelope is behind the sound
constexpr double kTogetherMs = 60;     // within which tones began with the same burst
constexpr uint32_t kMatchedMiddle = 3; // bursts and pauses of a tone that was entered in its middle

bool is_only_sound(const country_detector *detector, uint32_t tone, uint32_t sound) {
    for (uint32_t other = 0; other < kCadences; other++) {
        if (other == tone || cadence_is_equal(&detector->cadences[other], &detector->cadences[tone]))
            continue;
        for (uint32_t i = 0; i < detector->cadences[other].count; i++)
            if (detector->cadences[other].bursts[i].sound == sound)
                return false;
    }
    return true;
}

// The place of a tone that explains most of what was heard; null: none is credible yet. One that was entered in the middle
// needs more.
const cadence_place *place_best(const country_detector *detector, uint32_t tone) {
    const cadence_match *match = &detector->matches[tone];
    const cadence_place *best = nullptr;
    for (uint32_t i = 0; i < detector->cadences[tone].count; i++) {
        const cadence_place *place = &match->places[i];
        if (place->alive && (place->exact || place->matched >= kMatchedMiddle) &&
            (best == nullptr || place->first < best->first))
            best = place;
    }
    return best;
}

// The tones that explain all that has been heard since a moment, by bit.
uint32_t tones_since(const country_detector *detector, double moment) {
    uint32_t tones = 0;
    for (uint32_t tone = 0; tone < kCadences; tone++) {
        const cadence_place *place = place_best(detector, tone);
        tones |= place != nullptr && place->first <= moment + kTogetherMs ? 1u << tone : 0;
    }
    return tones;
}

// When what has a credible explanation began; negative: nothing has one.
double first_find(const country_detector *detector) {
    double first = -1;
    for (uint32_t tone = 0; tone < kCadences; tone++) {
        const cadence_place *place = place_best(detector, tone);
        if (place != nullptr && (first < 0 || place->first < first))
            first = place->first;
    }
    return first;
}

// Whether what was heard can be no other tone that was cut off.
bool is_sure(const country_detector *detector, uint32_t tone, const cadence_place *place) {
    const cadence_match *match = &detector->matches[tone];
    const cadence_burst *burst = &detector->cadences[tone].bursts[place - match->places];
    if (match->sounds && (burst->ms == 0 || is_only_sound(detector, tone, burst->sound)))
        return true;
    if (place->matched >= 2)
        return true;
    return !match->sounds && burst->gap_ms >= kPauseMs &&
           country_detector_now(detector) - kFilterMs - match->since >= kPauseMs;
}

// How long after its begin a tone has been heard whole.
double period_of(const country_detector *detector, uint32_t tone) {
    const cadence *one = &detector->cadences[tone];
    uint32_t longest = 0;
    if (one->bursts[one->count - 1].ms > 0)
        return one->period_ms;
    for (const cadence &other : detector->cadences)
        for (uint32_t i = 0; i < other.count; i++)
            if (other.bursts[i].sound == one->bursts[one->count - 1].sound && other.bursts[i].ms > longest)
                longest = other.bursts[i].ms;
    return one->period_ms + longest;
}

// Whether tones can be named now: they are one, or it would be too late soon.
bool tones_are_decided(const country_detector *detector, uint32_t tones) {
    uint32_t first = kCadences;
    bool sure = true, equal = true, late = false;
    for (uint32_t tone = 0; tone < kCadences; tone++) {
        if ((tones >> tone & 1) == 0)
            continue;
        const cadence_place *place = place_best(detector, tone);
        first = first == kCadences ? tone : first;
        sure = sure && is_sure(detector, tone, place);
        equal = equal && cadence_is_equal(&detector->cadences[tone], &detector->cadences[first]);
        late = late || country_detector_now(detector) - place->first > period_of(detector, tone) + kDecidedMs;
    }
    return tones != 0 && ((equal && sure) || late);
}

// The bursts of a tone that has ended are no begin of another one; that is the burst that came behind them.
void bursts_give_up(country_detector *detector) {
    const double last = detector->found_burst + kTogetherMs;
    for (cadence_match &match : detector->matches)
        for (cadence_place &place : match.places) {
            if (place.first > last)
                continue;
            if (place.alive && match.sounds && match.since > last)
                place = {true, &place == match.places, 0, kBursts, match.since};
            else
                place.alive = false;
        }
}

// Goes on with what was found. @return whether it still is
bool found_follow(country_detector *detector) {
    const uint32_t before = detector->found;
    detector->found &= tones_since(detector, detector->found_first);
    for (uint32_t tone = 0; tone < kCadences; tone++)
        if ((detector->found >> tone & 1) != 0)
            detector->found_burst = detector->matches[tone].begun;
    if (detector->found == 0 && before != 0)
        bursts_give_up(detector);
    return detector->found != 0;
}

} // namespace

bool country_detector_follows(const country_detector *detector) {
    return first_find(detector) >= 0;
}

void country_tones_decide(country_detector *detector) {
    if (found_follow(detector))
        return;
    const double first = first_find(detector);
    const uint32_t tones = first < 0 ? 0 : tones_since(detector, first);
    if (!tones_are_decided(detector, tones))
        return;
    detector->found = tones;
    detector->found_first = first;
    found_follow(detector);
}

// SPDX-License-Identifier: MIT
// Which tones it is that are heard.
#include "country_detector.h"

namespace {

constexpr uint32_t kPauseMs = 500; // of a pause, that says that a burst was not cut off
constexpr uint32_t kLongMs = 150;  // of a burst that can be told beside a voice
constexpr float kSilent = 0.25F;   // of a burst's level
constexpr float kSteady = 0.3F;    // of its loudness, for a voice of the simulators
constexpr double kBeforeMs = 260, kEdgeMs = 60;
constexpr double kDecidedMs = 160; // behind a period
constexpr double kEndNewsMs = 100; // after which it is known that a burst goes on
constexpr double kFilterMs = 20;   // by which an envelope is behind the sound
constexpr double kTogetherMs = 60; // within which tones began with the same burst

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

// The credible place of a tone that explains most of what was heard since a moment; null: there is none.
const cadence_place *place_best(const country_detector *detector, uint32_t tone, double since) {
    const cadence_match *match = &detector->matches[tone];
    const cadence_place *best = nullptr;
    for (uint32_t i = 0; i < detector->cadences[tone].count; i++) {
        const cadence_place *place = &match->places[i];
        if (cadence_place_is_credible(place) && place->first >= since &&
            (best == nullptr || place->first < best->first))
            best = place;
    }
    return best;
}

// What the tones among some have in common that explain all of what was heard since a moment.
struct explanation {
    uint32_t tones; // by bit
    double first;   // ms, when they began
};

explanation explanation_find(const country_detector *detector, uint32_t among, double since) {
    explanation found = {0, -1};
    for (uint32_t tone = 0; tone < kCadences; tone++) {
        const cadence_place *place = (among >> tone & 1) != 0 ? place_best(detector, tone, since) : nullptr;
        if (place != nullptr && (found.first < 0 || place->first < found.first))
            found.first = place->first;
    }
    for (uint32_t tone = 0; tone < kCadences && found.first >= 0; tone++) {
        const cadence_place *place = (among >> tone & 1) != 0 ? place_best(detector, tone, since) : nullptr;
        found.tones |= place != nullptr && place->first <= found.first + kTogetherMs ? 1u << tone : 0;
    }
    return found;
}

// Whether the last burst is no piece of something else: there was little before and behind it, or a steady voice.
bool stands_alone(const country_detector *detector, const cadence_match *match, uint32_t ms) {
    const double now = country_detector_now(detector);
    const loudness_range before = country_detector_loudness(detector, match->own - kBeforeMs, match->own - kEdgeMs);
    const loudness_range behind = country_detector_loudness(detector, match->since + kEdgeMs, now);
    const float most = before.most > behind.most ? before.most : behind.most;
    const float least = before.least < behind.least ? before.least : behind.least;
    return match->alone && (most < kSilent * match->level || (ms >= kLongMs && most - least < kSteady * most));
}

// How long a burst of a sound lasts at most, if it ends; ms.
uint32_t burst_longest(const country_detector *detector, uint32_t sound) {
    uint32_t longest = 0;
    for (const cadence &tone : detector->cadences)
        for (uint32_t i = 0; i < tone.count; i++)
            if (tone.bursts[i].sound == sound && tone.bursts[i].ms > longest)
                longest = tone.bursts[i].ms;
    return longest;
}

// Whether what was heard can be no other tone that was cut off, and nothing else that has the frequency for a while.
bool is_sure(const country_detector *detector, uint32_t tone, const cadence_place *place) {
    const cadence_match *match = &detector->matches[tone];
    const cadence_burst *burst = &detector->cadences[tone].bursts[place - match->places];
    if (place->matched >= 2)
        return true;
    if (match->sounds && burst->ms == 0)
        return country_detector_now(detector) - match->since > burst_longest(detector, burst->sound) + kEndNewsMs;
    if (match->sounds)
        return detector->sounds[burst->sound].second != kFilters && is_only_sound(detector, tone, burst->sound);
    return burst->gap_ms >= kPauseMs && country_detector_now(detector) - kFilterMs - match->since >= kPauseMs &&
           stands_alone(detector, match, burst->ms);
}

// How long after its begin a tone has been heard whole.
double period_of(const country_detector *detector, uint32_t tone) {
    const cadence *one = &detector->cadences[tone];
    const cadence_burst *last = &one->bursts[one->count - 1];
    return last->ms > 0 ? one->period_ms : one->period_ms + burst_longest(detector, last->sound);
}

// Whether the same bursts may still turn out to be another tone.
bool others_may_be(const country_detector *detector, explanation found) {
    for (uint32_t tone = 0; tone < kCadences; tone++)
        if ((found.tones >> tone & 1) == 0 &&
            cadence_may_become(&detector->matches[tone], &detector->cadences[tone], found.first - kTogetherMs))
            return true;
    return false;
}

// Those tones that can be named now: they are one, or it would be too late soon. 0: none yet.
uint32_t tones_decide(const country_detector *detector, explanation found) {
    uint32_t first = kCadences, sure = 0;
    bool equal = !others_may_be(detector, found), late = false;
    for (uint32_t tone = 0; tone < kCadences; tone++) {
        if ((found.tones >> tone & 1) == 0)
            continue;
        first = first == kCadences ? tone : first;
        sure |= is_sure(detector, tone, place_best(detector, tone, found.first)) ? 1u << tone : 0;
        equal = equal && cadence_is_equal(&detector->cadences[tone], &detector->cadences[first]);
        late = late || country_detector_now(detector) - found.first > period_of(detector, tone) + kDecidedMs;
    }
    return late || (equal && sure == found.tones) ? sure : 0;
}

// Goes on with what was found. @return whether it still is
bool found_follow(country_detector *detector) {
    uint32_t left = 0;
    for (uint32_t tone = 0; tone < kCadences; tone++) {
        if ((detector->found >> tone & 1) == 0)
            continue;
        const cadence_place *place = place_best(detector, tone, 0);
        if (detector->matches[tone].own > detector->found_burst)
            detector->found_burst = detector->matches[tone].own;
        left |= place != nullptr && place->first <= detector->found_first + kTogetherMs ? 1u << tone : 0;
    }
    // The bursts of a tone that has ended are hardly the begin of another one.
    for (uint32_t tone = 0; tone < kCadences && left == 0 && detector->found != 0; tone++)
        cadence_doubt(&detector->matches[tone], &detector->cadences[tone], detector->found_burst + kTogetherMs);
    detector->found = left;
    return left != 0;
}

// Tones whose first burst has a sound that none of those has which were found.
uint32_t tones_foreign(const country_detector *detector) {
    uint64_t known = 0;
    uint32_t foreign = 0;
    for (uint32_t tone = 0; tone < kCadences; tone++)
        for (uint32_t i = 0; i < detector->cadences[tone].count && (detector->found >> tone & 1) != 0; i++)
            known |= uint64_t{1} << detector->cadences[tone].bursts[i].sound;
    for (uint32_t tone = 0; tone < kCadences; tone++)
        if (detector->cadences[tone].count > 0 && (known >> detector->cadences[tone].bursts[0].sound & 1) == 0)
            foreign |= 1u << tone;
    return foreign;
}

void found_set(country_detector *detector, uint32_t tones, double first) {
    detector->found = tones;
    detector->found_first = first;
}

} // namespace

bool country_detector_follows(const country_detector *detector) {
    return explanation_find(detector, UINT32_MAX, 0).first >= 0;
}

void country_tones_decide(country_detector *detector) {
    if (!found_follow(detector)) {
        const explanation found = explanation_find(detector, UINT32_MAX, 0);
        found_set(detector, tones_decide(detector, found), found.first);
        return;
    }
    // In the pause of a tone that was found, which may be long, another one may begin.
    const explanation next = explanation_find(detector, tones_foreign(detector), detector->found_burst + kTogetherMs);
    const uint32_t tones = tones_decide(detector, next);
    if (tones != 0)
        found_set(detector, tones, next.first);
}

// SPDX-License-Identifier: MIT
// What is missing, concealed.
#include "concealment.h"

#include <string.h>

namespace {

// How alike two runs of samples are: their product, less what loudness alone brings.
int64_t likeness(const int16_t *one, const int16_t *other) {
    int64_t sum = 0;
    for (uint32_t i = 0; i < kJoinSamples; i++) {
        const int32_t difference = one[i] - other[i];
        sum -= static_cast<int64_t>(difference) * difference;
    }
    return sum;
}

int16_t concealed(const concealment *gap) {
    if (gap->missing >= kFadeEnd)
        return 0;
    const int32_t sample = gap->period[gap->missing % gap->length];
    const int32_t left = static_cast<int32_t>(kFadeEnd - gap->missing);
    constexpr int32_t kWhole = kFadeEnd - kFadeFrom;
    return static_cast<int16_t>(left >= kWhole ? sample : sample * left / kWhole);
}

// After silence there is nothing to play on, and so nothing to join later.
void gap_begin(concealment *gap) {
    gap->length = period_find(gap->played + kPlayedSamples - kJoinSamples, -1, kLongestPeriod);
    memcpy(gap->period, gap->played + kPlayedSamples - gap->length, gap->length * sizeof gap->period[0]);
    bool is_silent = true;
    for (uint32_t i = 0; i < gap->length; i++)
        is_silent = is_silent && gap->period[i] == 0;
    if (is_silent)
        gap->missing = kFadeEnd;
}

} // namespace

int16_t concealment_next(concealment *gap) {
    if (gap->missing == 0)
        gap_begin(gap);
    gap->joining = kJoinSamples;
    const int16_t sample = concealed(gap);
    gap->missing += gap->missing < kFadeEnd;
    return sample;
}

int16_t concealment_join(concealment *gap, int16_t sample) {
    if (gap->missing >= kFadeEnd || gap->joining == 0) { // out of silence there is nothing to join
        gap->missing = gap->joining = 0;
        return sample;
    }
    const int16_t joined = samples_join(concealed(gap), sample, kJoinSamples - gap->joining);
    gap->missing++;
    gap->joining--;
    return joined;
}

void concealment_note(concealment *gap, const int16_t *samples, uint32_t count) {
    memmove(gap->played, gap->played + count, (kPlayedSamples - count) * sizeof gap->played[0]);
    memcpy(gap->played + kPlayedSamples - count, samples, count * sizeof gap->played[0]);
}

uint32_t period_find(const int16_t *samples, int32_t direction, uint32_t longest) {
    uint32_t best = kShortestPeriod;
    int64_t most = INT64_MIN;
    for (uint32_t length = kShortestPeriod; length <= longest; length++) {
        const int64_t found = likeness(samples, samples + direction * static_cast<int32_t>(length));
        if (found <= most)
            continue;
        most = found;
        best = length;
    }
    return best;
}

int16_t samples_join(int16_t from, int16_t to, uint32_t step) {
    constexpr int32_t kSteps = kJoinSamples + 1;
    const int32_t part = static_cast<int32_t>(step) + 1;
    return static_cast<int16_t>((from * (kSteps - part) + to * part) / kSteps);
}

// SPDX-License-Identifier: MIT
// Tones as sound. Each element begins with a phase of 0.
#include "tone_player.h"

#include "frame.h"
#include "sampling_clock.h"

#include <math.h>

namespace {

constexpr double kTurn = 6.283185307179586;
constexpr double kFullScale = 22826; // amplitude of a sine of 0 dBm0: the loudest one of A-law has 3.14 dBm0
constexpr uint32_t kGapSamples = 80 * (kSampleRate / 1000); // between two tones, as an exchange needs to switch

// Reduced to one turn in whole numbers, so that nothing adds up however long it sounds.
double wave(uint32_t frequency, uint32_t sample) {
    const uint64_t part = uint64_t{sample} * frequency % kSampleRate;
    return sin(kTurn * static_cast<double>(part) / kSampleRate);
}

int16_t element_sample(const tone_element *element, double amplitude, uint32_t sample) {
    double value = wave(element->first, sample);
    if (element->modulates)
        value *= 1 + wave(element->second, sample); // which leaves the first one's own level as it is
    else if (element->second > 0)
        value += wave(element->second, sample);
    return static_cast<int16_t>(lround(amplitude * value));
}

// @return how many samples of the element are left, at most `most`
uint32_t element_left(const tone_player *player, uint32_t most) {
    const uint32_t whole = player->pattern.elements[player->element].ms * (kSampleRate / 1000);
    return whole == 0 || whole - player->played > most ? most : whole - player->played;
}

} // namespace

void tone_player_start(tone_player *player, const tone_pattern *pattern) {
    tone_player_stop(player);
    player->pattern = *pattern;
    player->element = player->played = 0;
}

void tone_player_stop(tone_player *player) {
    if (player->pattern.count > 0 && player->gap == 0) {
        const bool sounds = player->pattern.elements[player->element].first > 0;
        const uint32_t silent = sounds ? 0 : player->played;
        player->gap = silent < kGapSamples ? kGapSamples - silent : 0;
    }
    player->pattern.count = 0;
}

void tone_player_add(tone_player *player, int16_t *mix, uint32_t count) {
    const uint32_t silent = player->gap < count ? player->gap : count;
    player->gap -= silent;
    mix += silent;
    count -= silent;
    while (player->pattern.count > 0 && count > 0) {
        const tone_element *element = &player->pattern.elements[player->element];
        const double amplitude = kFullScale * pow(10, element->level / 200.0);
        const uint32_t now = element_left(player, count);
        for (uint32_t i = 0; i < now && element->first > 0; i++) {
            const int16_t sample = element_sample(element, amplitude, player->played + i);
            frame_add(mix + i, &sample, 1);
        }
        mix += now;
        count -= now;
        player->played += now;
        if (element->ms == 0)
            player->played %= kSampleRate; // a second is a whole number of turns
        else if (player->played == element->ms * (kSampleRate / 1000)) {
            player->element++;
            if (player->element == player->pattern.count)
                player->element = player->pattern.again;
            player->played = 0;
        }
    }
}

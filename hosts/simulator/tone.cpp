// SPDX-License-Identifier: MIT
// Tones: a sine generator, and Goertzel's filter at each frequency that a host may send.
#include "tone.h"

#include <math.h>
#include <stdio.h>

namespace {

constexpr double kTurn = 6.283185307179586;
constexpr double kAmplitude = 6000;
constexpr float kAudible = 600;        // amplitude below which there is silence
constexpr float kBesideLoudest = 0.3F; // of the loudest: what is weaker is its distortion
constexpr uint32_t kNetworkBins = sizeof kNetworkTones / sizeof kNetworkTones[0];
constexpr uint32_t kBins = (kDetectorHighest - kDetectorLowest) / kDetectorStep + 1 + kNetworkBins;

// What is looked for, in order. Frequencies are 20 Hz apart, but for those of networks.
struct detector_bins {
    uint32_t frequency[kBins];
};

constexpr detector_bins bins_make() {
    detector_bins bins = {};
    uint32_t count = 0;
    for (uint32_t frequency = kDetectorLowest; frequency <= kDetectorHighest; frequency += kDetectorStep)
        bins.frequency[count++] = frequency;
    for (uint32_t frequency : kNetworkTones) {
        uint32_t at = count++;
        for (; at > 0 && bins.frequency[at - 1] > frequency; at--)
            bins.frequency[at] = bins.frequency[at - 1];
        bins.frequency[at] = frequency;
    }
    return bins;
}
constexpr detector_bins kFrequencies = bins_make();

// No frequency is louder than twice the mean of all samples: in a pause nothing need be looked for.
bool may_be_audible(const tone_detector *detector) {
    uint32_t sum = 0;
    for (int16_t sample : detector->samples)
        sum += static_cast<uint32_t>(sample < 0 ? -sample : sample);
    return 2 * static_cast<float>(sum) / kDetectorSamples >= kAudible;
}

// Goertzel's filter at all of them side by side, so that the processor need not wait for one result before the next.
void amplitudes_find(const tone_detector *detector, float *amplitude) {
    float factor[kBins], before[kBins] = {}, last[kBins] = {};
    for (uint32_t bin = 0; bin < kBins; bin++)
        factor[bin] = static_cast<float>(2 * cos(kTurn * kFrequencies.frequency[bin] / kSampleRate));
    for (int16_t sample : detector->samples) {
        for (uint32_t bin = 0; bin < kBins; bin++) {
            const float now = sample + factor[bin] * last[bin] - before[bin];
            before[bin] = last[bin];
            last[bin] = now;
        }
    }
    for (uint32_t bin = 0; bin < kBins; bin++) {
        const float power = before[bin] * before[bin] + last[bin] * last[bin] - factor[bin] * before[bin] * last[bin];
        amplitude[bin] = 2 * sqrtf(power > 0 ? power : 0) / kDetectorSamples;
    }
}

// One turn of the tones that hosts speak in, a sample for each eight-thousandth.
const int16_t *turn_get() {
    static int16_t turn[kSampleRate];
    static bool made;
    for (uint32_t i = 0; i < kSampleRate && !made; i++)
        turn[i] = static_cast<int16_t>(kAmplitude * sin(kTurn * i / kSampleRate));
    made = true;
    return turn;
}

} // namespace

void tone_generator_next(tone_generator *generator, int16_t *samples, uint32_t count) {
    const int16_t *turn = turn_get();
    for (uint32_t i = 0; i < count; i++) {
        // In whole numbers, so that nothing adds up over hours.
        samples[i] = turn[static_cast<uint64_t>(generator->phase) * generator->frequency % kSampleRate];
        generator->phase = (generator->phase + 1) % kSampleRate;
    }
}

bool tone_detector_listen(tone_detector *detector, const int16_t *samples, uint32_t count) {
    constexpr uint32_t kWhole = kDetectorSkipped + kDetectorSamples;
    for (uint32_t i = 0; i < count && detector->used < kWhole; i++, detector->used++)
        if (detector->used >= kDetectorSkipped)
            detector->samples[detector->used - kDetectorSkipped] = samples[i];
    return detector->used == kWhole;
}

uint32_t tone_detector_find(tone_detector *detector, uint32_t frequencies[kDetectorTones]) {
    float heard[kBins];
    float loudest = 0;
    detector->used = 0;
    if (!may_be_audible(detector))
        return 0;
    amplitudes_find(detector, heard);
    for (float amplitude : heard)
        loudest = amplitude > loudest ? amplitude : loudest;
    uint32_t count = 0;
    for (uint32_t bin = 0; bin < kBins && loudest >= kAudible && count < kDetectorTones; bin++) {
        bool peak = (bin == 0 || heard[bin] >= heard[bin - 1]) && (bin + 1 == kBins || heard[bin] > heard[bin + 1]);
        if (peak && heard[bin] >= kAudible && heard[bin] >= kBesideLoudest * loudest)
            frequencies[count++] = kFrequencies.frequency[bin];
    }
    return count;
}

void tone_frequencies_write(const uint32_t *frequencies, uint32_t count, char *text, uint32_t size) {
    uint32_t used = 0;
    text[0] = 0;
    for (uint32_t i = 0; i < count; i++) {
        const int length = snprintf(text + used, size - used, "%s%uHz", i == 0 ? "" : "+", frequencies[i]);
        if (length < 0 || static_cast<uint32_t>(length) >= size - used) {
            text[used] = 0;
            return;
        }
        used += static_cast<uint32_t>(length);
    }
}

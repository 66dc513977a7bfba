// SPDX-License-Identifier: MIT
// Filters side by side.
#include "tone_filters.h"

#include <math.h>
#include <string.h>

namespace {

constexpr double kTurn = 6.283185307179586;
constexpr uint32_t kTurnSlots = kSampleRate / kSlotSamples; // every whole frequency has whole turns in so many slots

// One turn, and a window over the slots of an envelope, whose sides fall to nothing.
struct tables {
    float cosine[kTurnSlots], sine[kTurnSlots];
    float window[kEnvelopeSlots];
    bool made;
};

const tables *tables_get() {
    static tables made;
    if (made.made)
        return &made;
    float sum = 0;
    for (uint32_t i = 0; i < kTurnSlots; i++) {
        made.cosine[i] = static_cast<float>(cos(kTurn * i / kTurnSlots));
        made.sine[i] = static_cast<float>(sin(kTurn * i / kTurnSlots));
    }
    for (uint32_t i = 0; i < kEnvelopeSlots; i++)
        sum += made.window[i] = static_cast<float>(1 - cos(kTurn * (i + 0.5) / kEnvelopeSlots));
    for (float &weight : made.window)
        weight *= 2 / (sum * kSlotSamples);
    made.made = true;
    return &made;
}

float power_of(const int16_t *samples) {
    float sum = 0;
    for (uint32_t i = 0; i < kSlotSamples; i++)
        sum += static_cast<float>(samples[i]) * static_cast<float>(samples[i]);
    return sum / kSlotSamples;
}

void sums_make(const tone_filters *filters, const int16_t *samples, float *real, float *imaginary) {
    const uint32_t padded = (filters->count + 3) / 4 * 4;
    for (uint32_t i = 0; i < kSlotSamples; i++) {
        const float sample = samples[i];
        for (uint32_t filter = 0; filter < padded; filter++) {
            real[filter] += sample * filters->cosine[i][filter];
            imaginary[filter] -= sample * filters->sine[i][filter];
        }
    }
}

void envelopes_make(tone_filters *filters) {
    const tables *table = tables_get();
    float power = 0, real[kFilters] = {}, imaginary[kFilters] = {};
    for (uint32_t back = 0; back < kEnvelopeSlots; back++) {
        const uint32_t slot = tone_filters_slot(filters, back);
        power += filters->power[slot];
        for (uint32_t filter = 0; filter < filters->count; filter++) {
            real[filter] += table->window[back] * filters->real[slot][filter];
            imaginary[filter] += table->window[back] * filters->imaginary[slot][filter];
        }
    }
    filters->loudness = sqrtf(2 * power / kEnvelopeSlots);
    for (uint32_t filter = 0; filter < filters->count; filter++)
        filters->envelope[filter] = sqrtf(real[filter] * real[filter] + imaginary[filter] * imaginary[filter]);
}

} // namespace

void tone_filters_begin(tone_filters *filters) {
    memset(filters, 0, sizeof *filters);
    filters->slots = kSlotsKept; // silence
}

void tone_filters_forget(tone_filters *filters) {
    memset(filters->real, 0, sizeof filters->real);
    memset(filters->imaginary, 0, sizeof filters->imaginary);
    memset(filters->power, 0, sizeof filters->power);
}

uint32_t tone_filters_slot(const tone_filters *filters, uint32_t back) {
    return static_cast<uint32_t>((filters->slots - 1 - back) % kSlotsKept);
}

uint32_t tone_filters_add(tone_filters *filters, uint32_t frequency) {
    for (uint32_t filter = 0; filter < filters->count; filter++)
        if (filters->frequency[filter] == frequency)
            return filter;
    if (filters->count == kFilters)
        return kFilters;
    const uint32_t filter = filters->count++;
    filters->frequency[filter] = frequency;
    for (uint32_t i = 0; i < kSlotSamples; i++) {
        filters->cosine[i][filter] = static_cast<float>(cos(kTurn * i * frequency / kSampleRate));
        filters->sine[i][filter] = static_cast<float>(sin(kTurn * i * frequency / kSampleRate));
    }
    return filter;
}

void tone_filters_take(tone_filters *filters, const int16_t *samples) {
    const tables *table = tables_get();
    const uint64_t number = filters->slots++;
    const uint32_t slot = tone_filters_slot(filters, 0);
    float real[kFilters] = {}, imaginary[kFilters] = {};
    filters->power[slot] = power_of(samples);
    if (filters->power[slot] > 0)
        sums_make(filters, samples, real, imaginary);
    for (uint32_t filter = 0; filter < filters->count; filter++) {
        const uint32_t turned = static_cast<uint32_t>(number * filters->frequency[filter] % kTurnSlots);
        const float cosine = table->cosine[turned], sine = table->sine[turned];
        filters->real[slot][filter] = real[filter] * cosine + imaginary[filter] * sine;
        filters->imaginary[slot][filter] = imaginary[filter] * cosine - real[filter] * sine;
    }
    envelopes_make(filters);
}

float tone_filters_amplitude(const tone_filters *filters, uint32_t filter, uint32_t count, uint32_t skipped) {
    float real = 0, imaginary = 0;
    for (uint32_t back = skipped; back < skipped + count && back < kSlotsKept; back++) {
        const uint32_t slot = tone_filters_slot(filters, back);
        real += filters->real[slot][filter];
        imaginary += filters->imaginary[slot][filter];
    }
    return 2 * sqrtf(real * real + imaginary * imaginary) / static_cast<float>(count * kSlotSamples);
}

// SPDX-License-Identifier: MIT
/**
 * @file made_up_slots.h
 * Sound for filters, a slot of 5 ms after the other.
 */
#pragma once

#include "tone_filters.h"

#include <cmath>
#include <functional>
#include <initializer_list>

struct partial {
    double frequency, amplitude;
};

/** A sum of sines that goes on from slot to slot. */
class SlotSound {
public:
    void set(std::initializer_list<partial> partials) {
        count_ = 0;
        for (const partial &one : partials)
            partials_[count_++] = one;
    }
    void next(int16_t *samples) {
        for (uint32_t i = 0; i < kSlotSamples; i++, sample_++) {
            double sum = 0;
            for (uint32_t k = 0; k < count_; k++)
                sum += partials_[k].amplitude *
                       std::sin(6.283185307179586 * partials_[k].frequency * sample_ / kSampleRate);
            samples[i] = static_cast<int16_t>(std::lround(sum));
        }
    }

private:
    partial partials_[8] = {};
    uint32_t count_ = 0, sample_ = 0;
};

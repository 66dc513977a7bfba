// SPDX-License-Identifier: MIT
// The spectrum of a filter's slots.
#include "tone_purity.h"

#include <initializer_list>
#include <math.h>

namespace {

constexpr double kTurn = 6.283185307179586;
constexpr float kAboveRest = 3; // power of a frequency, in proportion to what it is not

// Powers by frequency, from the filter's own on: each is one turn further away in all slots together. Behind the half of
// them those below the filter's follow.
struct spectrum {
    float power[kSlotsKept];
    uint32_t count;
};

// The slots of a filter, from the oldest on, and one turn in as many.
struct slots {
    float real[kSlotsKept], imaginary[kSlotsKept];
    float cosine[kSlotsKept], sine[kSlotsKept];
    uint32_t count;
};

slots slots_get(const tone_filters *filters, uint32_t filter, uint32_t count, uint32_t skipped) {
    slots result;
    result.count = count < kSlotsKept ? count : kSlotsKept;
    for (uint32_t i = 0; i < result.count; i++) {
        const uint32_t slot = tone_filters_slot(filters, skipped + result.count - 1 - i);
        result.real[i] = filters->real[slot][filter];
        result.imaginary[i] = filters->imaginary[slot][filter];
        result.cosine[i] = static_cast<float>(cos(kTurn * i / result.count));
        result.sine[i] = static_cast<float>(sin(kTurn * i / result.count));
    }
    return result;
}

float power_at(const slots *all, uint32_t turns) {
    float real = 0, imaginary = 0;
    for (uint32_t i = 0; i < all->count; i++) {
        const float cosine = all->cosine[i * turns % all->count], sine = all->sine[i * turns % all->count];
        real += all->real[i] * cosine + all->imaginary[i] * sine;
        imaginary += all->imaginary[i] * cosine - all->real[i] * sine;
    }
    return real * real + imaginary * imaginary;
}

// The sum of a whole spectrum.
float power_of_all(const slots *all) {
    float sum = 0;
    for (uint32_t i = 0; i < all->count; i++)
        sum += all->real[i] * all->real[i] + all->imaginary[i] * all->imaginary[i];
    return sum * static_cast<float>(all->count);
}

spectrum spectrum_make(const slots *all) {
    spectrum result = {};
    result.count = all->count;
    for (uint32_t turns = 0; turns < all->count; turns++)
        result.power[turns] = power_at(all, turns);
    return result;
}

// Takes out what is within a turn of a frequency, which is so many Hz away from the filter's.
void spectrum_take_out(spectrum *all, int32_t away) {
    const double turns = static_cast<double>(away) * all->count * kSlotMs / 1000;
    const auto count = static_cast<int32_t>(all->count);
    for (auto at = static_cast<int32_t>(ceil(turns - 1)); at <= turns + 1; at++)
        all->power[(at % count + count) % count] = 0;
}

void loudest_take_out(spectrum *all) {
    uint32_t loudest = 0;
    for (uint32_t i = 1; i < all->count; i++)
        loudest = all->power[i] > all->power[loudest] ? i : loudest;
    for (uint32_t i : {loudest + all->count - 1, loudest, loudest + 1})
        all->power[i % all->count] = 0;
}

// What the sound itself has near the filter, and the loudest of what it has not.
void known_take_out(spectrum *all, const tone_sound *sound, const tone_filters *filters, uint32_t filter) {
    spectrum_take_out(all, 0);
    for (uint32_t other : {sound->first, sound->second, sound->side}) {
        if (other == kFilters || other == filter)
            continue;
        const int32_t away =
            static_cast<int32_t>(filters->frequency[other]) - static_cast<int32_t>(filters->frequency[filter]);
        spectrum_take_out(all, away);
        if (other == sound->side)
            spectrum_take_out(all, -away);
    }
    loudest_take_out(all);
}

bool is_pure(const tone_sound *sound, const tone_filters *filters, uint32_t filter, const slots *all) {
    const float own = power_at(all, 0), above = power_at(all, 1), below = power_at(all, all->count - 1);
    // Of a frequency that is nearer to the next one than to the filter's, that one has more.
    if (own < above || own < below)
        return false;
    if (own > kAboveRest * (power_of_all(all) - own - above - below))
        return true; // which spares the whole spectrum, mostly
    spectrum left = spectrum_make(all);
    float rest = 0;
    known_take_out(&left, sound, filters, filter);
    for (uint32_t i = 0; i < left.count; i++)
        rest += left.power[i];
    return own > kAboveRest * rest;
}

} // namespace

bool tone_is_pure(const tone_sound *sound, const tone_filters *filters, uint32_t count, uint32_t skipped) {
    if (count == 0)
        return false;
    for (uint32_t filter : {sound->first, sound->second}) {
        if (filter == kFilters)
            continue;
        const slots all = slots_get(filters, filter, count, skipped);
        if (!is_pure(sound, filters, filter, &all))
            return false;
    }
    return true;
}

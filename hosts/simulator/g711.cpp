// SPDX-License-Identifier: MIT
// ITU-T G.711 by its definition: a sign, the number of a chord whose width doubles, and a step within it.
#include "g711.h"

namespace {

constexpr uint8_t kSign = 0x80;
constexpr uint8_t kAlawInversion = 0x55; // every second bit is sent inverted
constexpr int kUlawBias = 0x84;          // makes the first chord look like the others

int highest_bit(int value) {
    int bit = 0;
    while (value >>= 1)
        bit++;
    return bit;
}

} // namespace

uint8_t g711_alaw_encode(int16_t sample) {
    bool positive = sample >= 0;
    int magnitude = (positive ? sample : ~sample) >> 3; // 12 bits
    int chord = magnitude < 32 ? 0 : highest_bit(magnitude) - 4;
    int step = (magnitude >> (chord == 0 ? 1 : chord)) & 0x0F;
    return static_cast<uint8_t>(((positive ? kSign : 0) | chord << 4 | step) ^ kAlawInversion);
}

int16_t g711_alaw_decode(uint8_t code) {
    code ^= kAlawInversion;
    int chord = code >> 4 & 0x07;
    int magnitude = (code & 0x0F) << 4 | 0x08; // the middle of the step
    if (chord > 0)
        magnitude = (magnitude + 0x100) << (chord - 1);
    return static_cast<int16_t>(code & kSign ? magnitude : -magnitude);
}

uint8_t g711_ulaw_encode(int16_t sample) {
    constexpr int kClip = 32635;
    bool negative = sample < 0;
    int magnitude = negative ? -sample : sample;
    magnitude = (magnitude > kClip ? kClip : magnitude) + kUlawBias;
    int chord = highest_bit(magnitude) - 7;
    int step = (magnitude >> (chord + 3)) & 0x0F;
    return static_cast<uint8_t>(~((negative ? kSign : 0) | chord << 4 | step));
}

int16_t g711_ulaw_decode(uint8_t code) {
    code = static_cast<uint8_t>(~code);
    int chord = code >> 4 & 0x07;
    int magnitude = (((code & 0x0F) << 3) + kUlawBias) << chord;
    return static_cast<int16_t>(code & kSign ? kUlawBias - magnitude : magnitude - kUlawBias);
}

// SPDX-License-Identifier: MIT
// Runs of samples and their payload.
#include "frame.h"

#include "g711.h"
#include "libvoice_plugin.h"

namespace {

constexpr uint32_t kBytesPer10ms = 80;
constexpr uint8_t kWidebandSilence = 0xFD; // of G.722: the smallest step of either band; zeros are its loudest sound

int16_t sample_of(float value) {
    return static_cast<int16_t>(value >= INT16_MAX ? INT16_MAX : value <= INT16_MIN ? INT16_MIN : value);
}

} // namespace

// G.722 passes through: the handset behind this host encodes and decodes, and here it is silent.
bool frame_codec_is_known(uint32_t codec) {
    return codec == LIBVOICE_CODEC_PCMA || codec == LIBVOICE_CODEC_PCMU || codec == LIBVOICE_CODEC_G722;
}

bool frame_ptime_is_known(uint32_t ptime_ms) {
    return ptime_ms % 10 == 0 && ptime_ms > 0 && ptime_ms <= kMostPtimeMs;
}

bool frame_size_is_known(uint32_t bytes) {
    return bytes % kBytesPer10ms == 0 && bytes > 0 && bytes <= kMostPayload;
}

void frame_encode(uint32_t codec, const int16_t *samples, uint32_t count, uint8_t *payload) {
    for (uint32_t i = 0; i < count; i++)
        payload[i] = codec == LIBVOICE_CODEC_PCMA   ? g711_alaw_encode(samples[i])
                     : codec == LIBVOICE_CODEC_PCMU ? g711_ulaw_encode(samples[i])
                                                    : kWidebandSilence;
}

void frame_decode(uint32_t codec, const uint8_t *payload, uint32_t count, int16_t *samples) {
    constexpr int16_t kSilence = 0;
    for (uint32_t i = 0; i < count; i++)
        samples[i] = codec == LIBVOICE_CODEC_PCMA   ? g711_alaw_decode(payload[i])
                     : codec == LIBVOICE_CODEC_PCMU ? g711_ulaw_decode(payload[i])
                                                    : kSilence;
}

void frame_add(int16_t *mix, const int16_t *samples, uint32_t count) {
    for (uint32_t i = 0; i < count; i++) {
        const int sum = mix[i] + samples[i];
        mix[i] = static_cast<int16_t>(sum > INT16_MAX ? INT16_MAX : sum < INT16_MIN ? INT16_MIN : sum);
    }
}

void frame_scale(int16_t *samples, uint32_t count, float factor) {
    for (uint32_t i = 0; i < count && factor != 1.0F; i++)
        samples[i] = sample_of(static_cast<float>(samples[i]) * factor);
}

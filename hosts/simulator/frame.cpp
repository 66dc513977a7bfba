// SPDX-License-Identifier: MIT
// Frames of sound and their payload.
#include "frame.h"

#include "g711.h"
#include "libvoice_plugin.h"

// G.722 passes through: the handset behind this host encodes and decodes, and here it is silent.
bool frame_codec_is_known(uint32_t codec) {
    return codec == LIBVOICE_CODEC_PCMA || codec == LIBVOICE_CODEC_PCMU || codec == LIBVOICE_CODEC_G722;
}

void frame_encode(uint32_t codec, const int16_t *samples, uint8_t *payload) {
    for (uint32_t i = 0; i < kFrameSamples; i++)
        payload[i] = codec == LIBVOICE_CODEC_PCMA   ? g711_alaw_encode(samples[i])
                     : codec == LIBVOICE_CODEC_PCMU ? g711_ulaw_encode(samples[i])
                                                    : 0;
}

void frame_decode(uint32_t codec, const uint8_t *payload, uint32_t bytes, int16_t *samples) {
    constexpr int16_t kSilence = 0;
    for (uint32_t i = 0; i < kFrameSamples; i++)
        samples[i] = i >= bytes                     ? kSilence
                     : codec == LIBVOICE_CODEC_PCMA ? g711_alaw_decode(payload[i])
                     : codec == LIBVOICE_CODEC_PCMU ? g711_ulaw_decode(payload[i])
                                                    : kSilence;
}

void frame_add(int16_t *mix, const int16_t *samples) {
    for (uint32_t i = 0; i < kFrameSamples; i++) {
        int sum = mix[i] + samples[i];
        mix[i] = static_cast<int16_t>(sum > INT16_MAX ? INT16_MAX : sum < INT16_MIN ? INT16_MIN : sum);
    }
}

// SPDX-License-Identifier: MIT
/**
 * @file frame.h
 * Frames of 20 ms of sound: to and from the payload of a packet, and added to each other.
 */
#pragma once

#include <stdint.h>

#include "tone.h"

constexpr uint32_t kFrameMs = 20;

/** Whether a codec can be sent and received: LIBVOICE_CODEC_PCMA and _PCMU, and _G722, which passes through unheard. */
bool frame_codec_is_known(uint32_t codec);
/** Writes kFrameSamples samples as so many bytes of payload. */
void frame_encode(uint32_t codec, const int16_t *samples, uint8_t *payload);
/** Reads kFrameSamples samples; silence where the payload is shorter. */
void frame_decode(uint32_t codec, const uint8_t *payload, uint32_t bytes, int16_t *samples);
/** Adds samples to a mix of kFrameSamples, at most as loud as a sample can be. */
void frame_add(int16_t *mix, const int16_t *samples);

// SPDX-License-Identifier: MIT
/**
 * @file frame.h
 * Runs of samples: to and from the payload of a packet, added to each other, made louder.
 */
#pragma once

#include <stdint.h>

constexpr uint32_t kMostPtimeMs = 30;  // of a packet
constexpr uint32_t kMostPayload = 240; // bytes, of the longest packet

/** Whether a codec can be sent and received: LIBVOICE_CODEC_PCMA and _PCMU, and _G722, which passes through unheard. */
bool frame_codec_is_known(uint32_t codec);
/** Whether packets can last so long: 10, 20 or 30 ms. */
bool frame_ptime_is_known(uint32_t ptime_ms);
/** Whether a payload lasts so long; each codec here has 80 bytes in 10 ms. */
bool frame_size_is_known(uint32_t bytes);
/** Writes `count` samples as so many bytes of payload. */
void frame_encode(uint32_t codec, const int16_t *samples, uint32_t count, uint8_t *payload);
/** Reads `count` samples from so many bytes of payload. */
void frame_decode(uint32_t codec, const uint8_t *payload, uint32_t count, int16_t *samples);
/** Adds samples to a mix, at most as loud as a sample can be. */
void frame_add(int16_t *mix, const int16_t *samples, uint32_t count);
/** Makes samples louder or softer, at most as loud as a sample can be. @param factor  1: as they are */
void frame_scale(int16_t *samples, uint32_t count, float factor);

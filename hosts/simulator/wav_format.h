// SPDX-License-Identifier: MIT
/**
 * @file wav_format.h
 * What stands before the samples of a WAV file (RIFF/WAVE), written and described.
 */
#pragma once

#include <stdint.h>

constexpr uint32_t kWavHeadBytes = 44; // as it is written here; others put more in between

/** How samples are written down. */
enum wav_coding : uint16_t { WAV_LINEAR = 1, WAV_ALAW = 6, WAV_ULAW = 7, WAV_EXTENSIBLE = 0xFFFE };

struct wav_format {
    uint16_t coding; // a wav_coding, or another one
    uint16_t channels;
    uint32_t rate; // samples of one channel in a second
    uint16_t bits; // of a sample
};

/** Writes the head of a file with so many bytes of linear samples. */
void wav_head_write(const wav_format *format, uint32_t sound_bytes, uint8_t head[kWavHeadBytes]);
/** Reads what a "fmt " chunk begins with. @param bytes  at least 16; from 26 on the coding behind WAV_EXTENSIBLE is read
 */
wav_format wav_format_read(const uint8_t *bytes, uint32_t count);
/** "PCM 16 bit, 2 channels, 44100 Hz". Valid until the next call. */
const char *wav_format_text(const wav_format *format);

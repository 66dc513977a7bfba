// SPDX-License-Identifier: MIT
/**
 * @file wav_writer.h
 * A WAV file of two channels that is valid at any moment, whatever becomes of the process: linear samples of 16 bits at
 * 8000 Hz. Every kWavFlushSamples the samples are written, and then the head that counts them.
 */
#pragma once

#include <stdint.h>

constexpr uint32_t kWavFlushSamples = 1600;        // 200 ms
constexpr uint64_t kWavMostBytes = 0x7FFFFFFF - 3; // of sound: 18 hours; many programs read no larger file

struct wav_writer {
    bool open;
    int fd;
    uint64_t most;  // bytes of sound that it may hold
    uint64_t bytes; // of sound in the file, holes for silence included
    uint32_t held;  // bytes that are not in the file yet
    uint8_t piece[kWavFlushSamples * 4];
};

/** Opens a file that is to be written: a new one, or one that is empty or a WAV file, and that nobody writes to. It
 *  stays as it is until wav_writer_begin(). @return null, or why not, a sentence without its name that is valid until the
 *  next call */
const char *wav_writer_open(wav_writer *writer, const char *path);
/** Empties the file and begins it anew. @return null, or why not; it is closed */
const char *wav_writer_begin(wav_writer *writer);
/** Closes one that was not begun, which stays as it was. */
void wav_writer_leave(wav_writer *writer);
/** Writes samples of both channels. @return null, or why the file has ended with what was there before; it is closed */
const char *wav_writer_put(wav_writer *writer, const int16_t *left, const int16_t *right, uint32_t count);
/** Leaves so many samples silent, at no cost. @return as above */
const char *wav_writer_skip(wav_writer *writer, uint64_t samples);
/** Ends a file that is open. @return null, or what could not be written */
const char *wav_writer_close(wav_writer *writer);
/** The samples of each channel so far. */
uint64_t wav_writer_length(const wav_writer *writer);

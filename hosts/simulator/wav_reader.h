// SPDX-License-Identifier: MIT
/**
 * @file wav_reader.h
 * Samples out of a WAV file, for a voice.
 *
 * Taken are files with one channel at 8000 Hz: linear samples of 16 bits, A-law or u-law. Every other one is refused
 * with a sentence that says what it is. A file is read in pieces of kWavPieceBytes, so that its size does not matter,
 * and only a plain file is: nothing else is sure to answer at once.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

constexpr uint32_t kWavPieceBytes = 4096; // 256 ms of linear samples

struct wav_reader {
    bool open;
    int fd;
    uint16_t coding;        // a wav_coding
    uint64_t begin, end;    // of the samples in the file, in bytes
    uint64_t at;            // from where the next piece is read
    const char *wrong;      // why no more can be read; null: it can
    uint32_t taken, filled; // of the piece, in bytes
    uint8_t piece[kWavPieceBytes];
};

/** Opens a file and looks at its head. @return null, or what is wrong with it, a sentence without its name that is valid
 *  until the next call: "is empty" */
const char *wav_reader_open(wav_reader *reader, const char *path);
/** The next samples, at most `count`. @return how many; fewer: no more come, the reader is closed, and `wrong` says why
 *  the file ended before its time, if it did */
uint32_t wav_reader_next(wav_reader *reader, int16_t *samples, uint32_t count);
/** Closes one that is open. */
void wav_reader_close(wav_reader *reader);
/** How long all of it lasts, in samples. */
uint64_t wav_reader_length(const wav_reader *reader);

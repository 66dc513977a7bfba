// SPDX-License-Identifier: MIT
/**
 * @file sample_output.h
 * Samples as they come, for a player: 16 bits, the lowest byte first, 8000 Hz, into a pipe with a name or into a file.
 *
 * Nothing waits for who reads. A pipe holds a quarter of a second; what does not fit is dropped and counted, so that who
 * reads again later hears what is said then.
 */
#pragma once

#include <stdint.h>

struct sample_output {
    bool open;
    int fd;
    uint64_t given, dropped; // samples
};

/** Opens a pipe that somebody reads, or begins a file that is not there, or empty; nobody else may write to it so.
 *  @return null, or why not, a sentence without its name that is valid until the next call */
const char *sample_output_open(sample_output *output, const char *path);
/** Hands samples over, kStepSamples at most. @return null, or why nobody gets any more; it is closed */
const char *sample_output_put(sample_output *output, const int16_t *samples, uint32_t count);
/** Closes one that is open. */
void sample_output_close(sample_output *output);

// SPDX-License-Identifier: MIT
/**
 * @file recording.h
 * A recording of a line: a WAV file, left what is heard and right what is said, and beside it a label file of what
 * happens (label_file.h): `call.wav` and `call.labels.txt`.
 *
 * It lasts from its begin on, on hook too, by the sampling clock: what the process was stopped for is silent. When it
 * cannot go on it says so on the line, and ends; the line notices nothing.
 */
#pragma once

#include "label_file.h"
#include "telephone.h"
#include "wav_writer.h"

constexpr uint32_t kRecordingPath = 512; // bytes, as a command has
constexpr uint32_t kSpans = 4;           // what may last at the same time, each kind once

/** A label of what goes on. */
struct recorded_span {
    uint64_t place; // in the label file; 0: nothing goes on
    uint64_t begin; // in samples
    bool is_voice;  // heard through media, and so not longer than that
    char session;   // the figure behind "line=" of media; 0: something else
};

struct recording {
    telephone *line; // null: there is none
    wav_writer sound;
    label_file labels;
    uint64_t begin;    // sampling clock
    uint64_t extended; // when ends of labels were moved last
    recorded_span spans[kSpans];
    char path[kRecordingPath];
};

/** Begins a recording of a line that has none. @return null, or why not, a command error */
const char *recording_begin(recording *one, telephone *line, const char *path);
/** Ends it and says how long it is, and why, if there is a reason. Without a recording it does nothing. */
void recording_end(recording *one, const char *why);

// SPDX-License-Identifier: MIT
/**
 * @file audio_ends.h
 * Who else speaks and listens on a line: a source that speaks in place of the voice, and sinks that are given both
 * directions, as files and players do.
 */
#pragma once

#include "sampling_clock.h"

constexpr uint32_t kSinks = 4; // on a line

/** What is said in place of the voice. */
struct sound_source {
    void *userdata;
    /** Writes the kStepSamples that are said from `position` of the sampling clock on. @return no: it is over, and wrote
     *  nothing. It is not called again, and the voice goes on. */
    bool (*take)(void *userdata, uint64_t position, int16_t *samples);
};

/** Who is given both directions. */
struct sound_sink {
    void *userdata;
    /** kStepSamples of each direction, from `position` of the sampling clock on. Where a position does not follow upon
     *  the one before, the process was stopped and the time between has no sound. */
    void (*step)(void *userdata, uint64_t position, const int16_t *heard, const int16_t *said);
    /** What happens beside the sound at `position`, in the words of the host's output: "rings cadence=1000/4000". Null:
     *  unwanted. */
    void (*event)(void *userdata, uint64_t position, const char *text);
};

struct audio_ends {
    sound_source source;      // take null: the voice
    sound_sink sinks[kSinks]; // step null: free
};

/** Whether there is a source or a sink. */
bool ends_are_used(const audio_ends *ends);
/** The next step of the source. @return no: there is none, or it is over now */
bool ends_take(audio_ends *ends, uint64_t position, int16_t *said);
/** Gives a step to the sinks. */
void ends_step(const audio_ends *ends, uint64_t position, const int16_t *heard, const int16_t *said);
/** Tells the sinks what happens now. */
void ends_event(const audio_ends *ends, const char *text);
/** Adds a sink. @return no: there is no room */
bool ends_add_sink(audio_ends *ends, const sound_sink *sink);
/** Removes the sinks with this userdata. */
void ends_remove_sink(audio_ends *ends, const void *userdata);

// SPDX-License-Identifier: MIT
// Sources and sinks of a line.
#include "audio_ends.h"

bool ends_are_used(const audio_ends *ends) {
    bool used = ends->source.take != nullptr;
    for (const sound_sink &sink : ends->sinks)
        used = used || sink.step != nullptr;
    return used;
}

bool ends_take(audio_ends *ends, uint64_t position, int16_t *said) {
    if (ends->source.take == nullptr)
        return false;
    if (ends->source.take(ends->source.userdata, position, said))
        return true;
    ends->source = {};
    return false;
}

void ends_step(const audio_ends *ends, uint64_t position, const int16_t *heard, const int16_t *said) {
    for (const sound_sink &sink : ends->sinks)
        if (sink.step != nullptr)
            sink.step(sink.userdata, position, heard, said);
}

void ends_event(const audio_ends *ends, const char *text) {
    for (const sound_sink &sink : ends->sinks)
        if (sink.step != nullptr && sink.event != nullptr)
            sink.event(sink.userdata, sampling_clock_now(), text);
}

bool ends_add_sink(audio_ends *ends, const sound_sink *sink) {
    for (sound_sink &place : ends->sinks)
        if (place.step == nullptr) {
            place = *sink;
            return true;
        }
    return false;
}

void ends_remove_sink(audio_ends *ends, const void *userdata) {
    for (sound_sink &place : ends->sinks)
        if (place.userdata == userdata)
            place = {};
}

// SPDX-License-Identifier: MIT
// Recordings of lines: sound, and what happens beside it.
#include "recording.h"

#include "console.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

namespace {

constexpr char kLabelsEnding[] = ".labels.txt", kWavEnding[] = ".wav";
constexpr uint32_t kExtendEvery = kSampleRate / 2; // samples: ends of labels are right to half a second

constexpr char kHears[] = "hears ";
// What lasts: the words it begins with and those that end it. Whatever begins like it ends the one before.
constexpr struct {
    const char *begin;
    const char *ends[3];
} kLasting[kSpans] = {
    {"off hook", {"on hook"}},
    {"rings", {"stops ringing", "answered"}},
    {kHears, {"on hook"}},
    {"talking ", {"on hold ", "media ended "}},
};
constexpr char kFigures[] = " line="; // of media
constexpr char kNoTone[] = "hears silence";

bool begins_with(const char *text, const char *words) {
    return words != nullptr && strncmp(text, words, strlen(words)) == 0;
}

// A tone has a name, a voice a frequency.
bool is_voice(const char *text) {
    return begins_with(text, kHears) && text[sizeof kHears - 1] >= '0' && text[sizeof kHears - 1] <= '9';
}

char session_of(const char *text) {
    const char *figure = strstr(text, kFigures);
    return figure != nullptr ? figure[sizeof kFigures - 1] : '\0';
}

bool span_ends(const recorded_span *span, uint32_t kind, const char *text) {
    bool ends = begins_with(text, kLasting[kind].begin);
    if (span->is_voice)
        ends = ends || begins_with(text, "media ended ") || begins_with(text, "on hold ");
    const bool is_other = span->session != 0 && span->session != session_of(text); // as of a call on hold
    for (const char *words : kLasting[kind].ends)
        ends = ends || (begins_with(text, words) && !is_other);
    return ends;
}

// Figures of media are in the host's output; here they would only hide the rest.
void label_text(const char *text, char *label, size_t size) {
    snprintf(label, size, "%s", text);
    char *figures = strstr(label, kFigures);
    if (figures != nullptr)
        *figures = 0;
}

uint64_t time_in(const recording *one, uint64_t position) {
    return position > one->begin ? position - one->begin : 0;
}

// What happens has the time of its turn, which may be ahead of the sound.
bool span_extend(recording *one, const recorded_span *span, uint64_t end) {
    return label_file_extend(&one->labels, span->place, end > span->begin ? end : span->begin);
}

bool spans_extend(recording *one, uint64_t end) {
    one->extended = end;
    for (const recorded_span &span : one->spans)
        if (span.place != 0 && !span_extend(one, &span, end))
            return false;
    return true;
}

void recording_event(void *userdata, uint64_t position, const char *text) {
    recording *one = static_cast<recording *>(userdata);
    if (one->line == nullptr)
        return;
    const uint64_t at = time_in(one, position);
    char label[128];
    label_text(text, label, sizeof label);
    bool written = true;
    for (uint32_t kind = 0; kind < kSpans; kind++)
        if (one->spans[kind].place != 0 && span_ends(&one->spans[kind], kind, text)) {
            written = span_extend(one, &one->spans[kind], at) && written;
            one->spans[kind].place = 0;
        }
    const uint64_t place = strcmp(text, kNoTone) == 0 ? 0 : label_file_add(&one->labels, at, label);
    written = written && (place != 0 || strcmp(text, kNoTone) == 0);
    for (uint32_t kind = 0; kind < kSpans; kind++)
        if (begins_with(text, kLasting[kind].begin))
            one->spans[kind] = {place, at, is_voice(text), session_of(text)};
    if (!written)
        recording_end(one, strerror(errno));
}

// Up to the position: what is missing was not made.
const char *sound_fill(recording *one, uint64_t position) {
    const uint64_t missing = time_in(one, position) - wav_writer_length(&one->sound);
    return missing == 0 ? nullptr : wav_writer_skip(&one->sound, missing);
}

void recording_step(void *userdata, uint64_t position, const int16_t *heard, const int16_t *said) {
    recording *one = static_cast<recording *>(userdata);
    const char *wrong = sound_fill(one, position);
    if (wrong == nullptr)
        wrong = wav_writer_put(&one->sound, heard, said, kStepSamples);
    const uint64_t now = time_in(one, position) + kStepSamples;
    if (wrong == nullptr && now >= one->extended + kExtendEvery && !spans_extend(one, now))
        wrong = strerror(errno);
    if (wrong != nullptr)
        recording_end(one, wrong);
}

bool labels_path(const char *path, char *labels, size_t size) {
    size_t stem = strlen(path);
    const size_t ending = sizeof kWavEnding - 1;
    if (stem > ending && strcmp(path + stem - ending, kWavEnding) == 0)
        stem -= ending;
    const int length = snprintf(labels, size, "%.*s%s", static_cast<int>(stem), path, kLabelsEnding);
    return length > 0 && static_cast<size_t>(length) < size;
}

const char *files_open(recording *one, const char *path) {
    char labels[kRecordingPath + sizeof kLabelsEnding];
    if (strlen(path) >= sizeof one->path || !labels_path(path, labels, sizeof labels))
        return command_error("%s: %s", path, strerror(ENAMETOOLONG));
    const char *wrong = wav_writer_open(&one->sound, path);
    if (wrong != nullptr)
        return command_error("%s: %s", path, wrong);
    wrong = label_file_open(&one->labels, labels);
    if (wrong == nullptr)
        return nullptr;
    wav_writer_leave(&one->sound);
    return command_error("%s: %s", labels, wrong);
}

// What was in them is lost from here on.
const char *files_begin(recording *one, const char *path) {
    const char *wrong = wav_writer_begin(&one->sound);
    if (wrong == nullptr)
        wrong = label_file_begin(&one->labels);
    return wrong == nullptr ? nullptr : command_error("%s: %s", path, wrong);
}

void files_leave(recording *one) {
    if (one->sound.open)
        wav_writer_leave(&one->sound);
    label_file_close(&one->labels);
}

// What went on before.
void recording_note_begin(recording *one) {
    const telephone *line = one->line;
    if (line->off_hook && line->line != nullptr) // a channel has no hook
        recording_event(one, one->begin, "off hook");
    if (line->ringing)
        recording_event(one, one->begin, "rings");
    for (uint32_t i = 0; i < kSessions; i++)
        if (line->sound.sessions[i].open)
            recording_event(one, one->begin, audio_begin_text(&line->sound, i));
    char heard[128];
    snprintf(heard, sizeof heard, "%s%s", kHears, telephone_hears(line));
    if (strcmp(heard, kNoTone) != 0)
        recording_event(one, one->begin, heard);
}

} // namespace

const char *recording_begin(recording *one, telephone *line, const char *path) {
    memset(one, 0, sizeof *one);
    const char *wrong = files_open(one, path);
    if (wrong != nullptr)
        return wrong;
    const sound_sink sink = {one, recording_step, recording_event};
    wrong = audio_add_sink(&line->sound, &sink);
    if (wrong == nullptr)
        wrong = files_begin(one, path);
    if (wrong != nullptr) {
        audio_remove_sink(&line->sound, one);
        files_leave(one);
        return wrong;
    }
    telephone_tell(line, "records %s", path); // the file itself need not say so
    one->begin = sampling_clock_position();
    one->line = line;
    snprintf(one->path, sizeof one->path, "%s", path);
    recording_note_begin(one);
    return nullptr;
}

void recording_end(recording *one, const char *why) {
    telephone *line = one->line;
    if (line == nullptr)
        return;
    one->line = nullptr; // nothing that is told now is written any more
    audio_remove_sink(&line->sound, one);
    const uint64_t length = wav_writer_length(&one->sound);
    spans_extend(one, length);
    const char *wrong = one->sound.open ? wav_writer_close(&one->sound) : nullptr;
    label_file_close(&one->labels);
    why = why != nullptr ? why : wrong;
    telephone_tell(line, "recording ends: %s %u.%02u s%s%s", one->path, static_cast<uint32_t>(length / kSampleRate),
                   static_cast<uint32_t>(length % kSampleRate / 80), why != nullptr ? ": " : "",
                   why != nullptr ? why : "");
}

// SPDX-License-Identifier: MIT
#include "voice_file.h"

#include "console.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

namespace {

// Tells the line how it ended, which then speaks with its own voice again.
void file_over(voice_file *one, const char *why) {
    telephone *line = one->line;
    one->line = nullptr;
    audio_set_source(&line->sound, nullptr);
    audio_remove_sink(&line->sound, one);
    wav_reader_close(&one->sound);
    if (why == nullptr)
        telephone_tell(line, "has said %s", one->path);
    else
        telephone_tell(line, "stops saying %s: %s", one->path, why);
}

bool file_take(void *userdata, uint64_t, int16_t *samples) {
    voice_file *one = static_cast<voice_file *>(userdata);
    const char *why = "on hook";
    if (one->line->off_hook) {
        const uint32_t count = wav_reader_next(&one->sound, samples, kStepSamples);
        memset(samples + count, 0, (kStepSamples - count) * sizeof *samples);
        if (count > 0)
            return true;
        why = one->sound.wrong;
    }
    file_over(one, why);
    return false;
}

// The line may be lifted again before the next step.
void file_event(void *userdata, uint64_t, const char *) {
    voice_file *one = static_cast<voice_file *>(userdata);
    if (one->line != nullptr && !one->line->off_hook)
        file_over(one, "on hook");
}

void file_step(void *, uint64_t, const int16_t *, const int16_t *) {}

} // namespace

const char *voice_file_begin(voice_file *one, telephone *line, const char *path) {
    wav_reader opened;
    if (strlen(path) >= sizeof one->path)
        return command_error("%s: %s", path, strerror(ENAMETOOLONG));
    const char *wrong = wav_reader_open(&opened, path);
    if (wrong != nullptr)
        return command_error("%s: %s", path, wrong);
    voice_file_end(one);
    one->sound = opened;
    one->line = line;
    snprintf(one->path, sizeof one->path, "%s", path);
    const sound_sink sink = {one, file_step, file_event};
    const sound_source source = {one, file_take};
    wrong = audio_add_sink(&line->sound, &sink);
    if (wrong == nullptr)
        wrong = audio_set_source(&line->sound, &source);
    if (wrong != nullptr) {
        one->line = nullptr;
        audio_remove_sink(&line->sound, one);
        wav_reader_close(&one->sound);
        return wrong;
    }
    const uint64_t length = wav_reader_length(&one->sound);
    telephone_tell(line, "says %s %u.%02u s", path, static_cast<uint32_t>(length / kSampleRate),
                   static_cast<uint32_t>(length % kSampleRate / 80));
    return nullptr;
}

void voice_file_end(voice_file *one) {
    if (one->line != nullptr)
        file_over(one, "told to");
}

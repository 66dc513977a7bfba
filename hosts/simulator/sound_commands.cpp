// SPDX-License-Identifier: MIT
// Words of commands, and what each line is saying, recording and handing over.
#include "sound_commands.h"

#include "console.h"
#include "expectation.h"
#include "recording.h"
#include "sample_output.h"
#include "voice_file.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr uint32_t kLongestWait = 600000; // ms

// A player that gets what is heard.
struct player {
    telephone *line; // null: there is none
    sample_output samples;
    char path[512];
};

struct line_sound {
    voice_file voice;
    recording record;
    player listener;
    expectation expects;
};

line_sound sounds[LIBVOICE_ENDPOINTS];
telephone *lines;

bool is_off(const char *word) {
    return strcmp(word, "off") == 0;
}

// ----------------------------------------------------------------------------------------------------------- Players

void player_end(player *one, const char *why) {
    telephone *line = one->line;
    if (line == nullptr)
        return;
    one->line = nullptr;
    audio_remove_sink(&line->sound, one);
    sample_output_close(&one->samples);
    telephone_tell(line, "listening ends: %s samples=%llu dropped=%llu%s%s", one->path,
                   static_cast<unsigned long long>(one->samples.given),
                   static_cast<unsigned long long>(one->samples.dropped), why != nullptr ? ": " : "",
                   why != nullptr ? why : "");
}

void player_step(void *userdata, uint64_t, const int16_t *heard, const int16_t *) {
    player *one = static_cast<player *>(userdata);
    const char *wrong = sample_output_put(&one->samples, heard, kStepSamples);
    if (wrong != nullptr)
        player_end(one, wrong);
}

const char *player_begin(player *one, telephone *line, const char *path) {
    const char *wrong = sample_output_open(&one->samples, path);
    if (wrong != nullptr)
        return command_error("%s: %s", path, wrong);
    const sound_sink sink = {one, player_step, nullptr};
    wrong = audio_add_sink(&line->sound, &sink);
    if (wrong != nullptr) {
        sample_output_close(&one->samples);
        return wrong;
    }
    one->line = line;
    snprintf(one->path, sizeof one->path, "%s", path);
    telephone_tell(line, "is listened to: %s", path);
    return nullptr;
}

// -------------------------------------------------------------------------------------------------------------- Words

// A name without its quotes would be cut at its first blank, and another file made.
const char *too_much(char *rest) {
    return word_next(&rest) == nullptr ? nullptr : "one file, please: a name with blanks stands in double quotes";
}

// "3s", "2.5s", "500ms"; in ms. 0: none of them, or too long.
uint32_t time_read(const char *text) {
    uint64_t value = 0, scale = 1;
    const char *at = text;
    for (bool after_point = false; (*at >= '0' && *at <= '9') || (*at == '.' && !after_point); at++) {
        if (*at == '.') {
            after_point = true;
            continue;
        }
        if (value > kLongestWait || scale > kLongestWait)
            return 0;
        value = value * 10 + static_cast<uint64_t>(*at - '0');
        scale *= after_point ? 10 : 1;
    }
    if (at == text || (strcmp(at, "s") != 0 && strcmp(at, "ms") != 0))
        return 0;
    const uint64_t ms = (strcmp(at, "s") == 0 ? 1000 : 1) * value / scale;
    return ms > kLongestWait ? 0 : static_cast<uint32_t>(ms);
}

} // namespace

void sound_commands_begin(telephone *all) {
    lines = all;
}

void sound_commands_end() {
    for (line_sound &one : sounds) {
        voice_file_end(&one.voice);
        recording_end(&one.record, nullptr);
        player_end(&one.listener, nullptr);
        expectation_end(&one.expects);
    }
}

const char *sound_say(int number, char *rest) {
    voice_file *voice = &sounds[number - 1].voice;
    const char *path = word_next(&rest);
    if (path == nullptr)
        return command_error("say what? %d say FILE.wav", number);
    if (const char *why = too_much(rest))
        return why;
    if (is_off(path) && voice->line == nullptr)
        return command_error("%d says no file", number);
    if (is_off(path)) {
        voice_file_end(voice);
        return nullptr;
    }
    if (!lines[number - 1].off_hook)
        return command_error("%d is on hook: nobody would hear it", number);
    return voice_file_begin(voice, &lines[number - 1], path);
}

const char *sound_record(int number, char *rest) {
    recording *record = &sounds[number - 1].record;
    const char *path = word_next(&rest);
    if (path == nullptr)
        return command_error("record where? %d record FILE.wav", number);
    if (const char *why = too_much(rest))
        return why;
    if (!is_off(path) && record->line != nullptr)
        return command_error("%d records %s: end that first, by %d record off", number, record->path, number);
    if (!is_off(path))
        return recording_begin(record, &lines[number - 1], path);
    if (record->line == nullptr)
        return command_error("%d is not recorded", number);
    recording_end(record, nullptr);
    return nullptr;
}

const char *sound_listen(int number, char *rest) {
    player *listener = &sounds[number - 1].listener;
    const char *path = word_next(&rest);
    if (path == nullptr)
        return command_error("listen where? %d listen PIPE", number);
    if (const char *why = too_much(rest))
        return why;
    if (!is_off(path) && listener->line != nullptr)
        return command_error("%d is listened to at %s: end that first, by %d listen off", number, listener->path,
                             number);
    if (!is_off(path))
        return player_begin(listener, &lines[number - 1], path);
    if (listener->line == nullptr)
        return command_error("%d is not listened to", number);
    player_end(listener, nullptr);
    return nullptr;
}

const char *sound_expect(int number, char *rest) {
    expectation *expects = &sounds[number - 1].expects;
    const char *wanted = word_next(&rest);
    const char *time = word_next(&rest);
    if (wanted == nullptr || time == nullptr)
        return command_error("expect what, and for how long? %d expect busy-tone 3s", number);
    const uint32_t limit = time_read(time);
    if (limit == 0)
        return command_error("'%s': a time from 1ms to 600s, as in 3s, 2.5s, 500ms", time);
    if (*wanted == 0 || strlen(wanted) >= sizeof expects->wanted)
        return command_error("'%s': what a line hears, as in busy-tone, silence, 440Hz", wanted);
    if (expects->line != nullptr)
        return command_error("%d waits for %s already", number, expects->wanted);
    return expectation_begin(expects, &lines[number - 1], wanted, limit);
}

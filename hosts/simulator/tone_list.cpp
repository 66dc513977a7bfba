// SPDX-License-Identifier: MIT
// Lists of tones.
#include "tone_list.h"

#include <stdio.h>

namespace {

constexpr uint32_t kLongestPauseMs = kToneLongest;

const char *tone_check(const voice_tone_t *tone) {
    static char text[96];
    if (tone->frequency > kToneHighest)
        snprintf(text, sizeof text, "plays nothing: %d Hz, a line carries 1 to %u Hz",
                 static_cast<int32_t>(tone->frequency), kToneHighest);
    else if (tone->frequency > 0 && (tone->level > kToneLoudest || tone->level < kToneSoftest))
        snprintf(text, sizeof text, "plays nothing: a level of %.1f dBm0, possible are %.1f to %.1f",
                 tone->level / 10.0, kToneSoftest / 10.0, kToneLoudest / 10.0);
    else if (tone->on_ms > kToneLongest || tone->off_ms > kToneLongest)
        snprintf(text, sizeof text, "plays nothing: a tone or pause of more than %u ms", kToneLongest);
    else if (tone->frequency > 0 && tone->on_ms == 0)
        return "plays nothing: a tone of 0 ms";
    else
        return nullptr;
    return text;
}

void silence_add(tone_pattern *pattern, uint32_t ms) {
    tone_element *before = pattern->count > 0 ? &pattern->elements[pattern->count - 1] : nullptr;
    if (ms == 0)
        return;
    if (before != nullptr && before->first == 0)
        before->ms += ms;
    else
        pattern->elements[pattern->count++] = {0, 0, false, kToneLevel, ms};
}

} // namespace

const char *tone_list_read(const voice_tone_t *list, uint32_t count, int32_t pause_ms, tone_pattern *pattern) {
    bool sounds = false;
    *pattern = {};
    if (count == 0 || count > kListTones)
        return "plays nothing: a list has 1 to 32 tones";
    if (pause_ms < 0 || static_cast<uint32_t>(pause_ms) > kLongestPauseMs)
        return "plays nothing: no such pause between tones";
    for (uint32_t i = 0; i < count; i++) {
        const char *wrong = tone_check(&list[i]);
        if (wrong != nullptr)
            return wrong;
        sounds = sounds || list[i].frequency > 0;
        if (list[i].frequency > 0)
            pattern->elements[pattern->count++] = {list[i].frequency, 0, false, list[i].level, list[i].on_ms};
        else
            silence_add(pattern, list[i].on_ms);
        silence_add(pattern, list[i].off_ms);
        silence_add(pattern, static_cast<uint32_t>(pause_ms));
    }
    return sounds ? nullptr : "plays nothing: the list is silent";
}

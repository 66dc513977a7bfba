// SPDX-License-Identifier: MIT
/*
 * dsp_plugin: a voice plugin that offers DSP channels instead of endpoints.
 *
 *     voice_application --socket /tmp/voice.sock
 *     dsp_plugin --socket /tmp/voice.sock --name dsp1
 *     ready country=DE channels on request
 *     dsp dsp1                         (typed to voice_application: it makes a DSP with two channels and joins them)
 *     channel D1C1 talking line=0 codec=PCMA ports=30000->30002
 *     channel D1C1 plays LIBVOICE_SIGNAL_cg_rt
 *     channel D1C2 hears ring-back
 *
 * Its objects: <plugin> and <plugin>.EndPoint as every plugin has them, <plugin>.DSPPlugin of class DSPPlugin, below it
 * the template DSP, and in each DSP the template DSP_CHANNEL: dsp1.DSPPlugin.DSP.D1.DSP_CHANNEL.D1C1.
 */
#include "audio.h"
#include "console.h"
#include "country_tones.h"
#include "host.h"
#include "line_plugin.h"
#include "media_file.h"
#include "media_record.h"
#include "plugin_main.h"
#include "sound_commands.h"
#include "tone_list.h"
#include "unproved_tones.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace {

// Settings.
constexpr uint32_t kChannels = 16;
constexpr uint32_t kLowestVoice = 2200; // Hz; each next channel has 40 Hz more
constexpr uint32_t kVoiceStep = 40;
constexpr size_t kLongestName = sizeof audio::who - 1;

// Places for channels. One that media was set up for is off hook, as a telephone that talks, and its sound is called by its
// name, which is all that the library's objects know of it. Commands are for places: channels come and go.
telephone places[kChannels];
char country[3]; // that the application named

// Says what happens to a channel, and tells it to the sinks of its sound.
__attribute__((format(printf, 2, 3))) void channel_tell(const audio *sound, const char *format, ...) {
    char text[1024]; // as long as a line of the console
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    say("channel %s %s", sound->who, text);
    audio_event(sound, text);
}

void channel_hears(const audio *sound, const char *what) {
    channel_tell(sound, "hears %s", *what == 0 ? "silence" : what);
}

telephone *channel_find(const char *name) {
    for (telephone &one : places)
        if (one.off_hook && strcmp(one.sound.who, name) == 0)
            return &one;
    return nullptr;
}

// Null: all places are taken, or the name has no room.
telephone *channel_add(const char *name) {
    for (telephone &one : places) {
        if (one.off_hook || strlen(name) > kLongestName)
            continue;
        one.off_hook = true;
        snprintf(one.sound.who, sizeof one.sound.who, "%s", name);
        return &one;
    }
    return nullptr;
}

const char *none_wrong(const char *name) {
    static_assert(kLongestName == 39);
    return strlen(name) > kLongestName ? "a channel's name has at most 39 characters" : "no channel is free";
}

// A channel without media leaves its place to another one, and hears nothing any more: what the detector had begun to recognise
// would be said of a channel that is gone, or of the next one. A recording of the place goes on, without its tone.
void channel_free_if_idle(telephone *one) {
    bool is_idle = true;
    for (const media_session &session : one->sound.sessions)
        is_idle = is_idle && !session.open;
    one->off_hook = !is_idle;
    if (!is_idle)
        return;
    tone_player_stop(&one->sound.tone);
    audio_forget(&one->sound);
}

bool channel_close_media(telephone *one, uint32_t line) {
    line_statistics_t statistics;
    if (!audio_close(&one->sound, line, &statistics))
        return false;
    channel_tell(&one->sound, "%s", audio_end_text(line, &statistics));
    channel_free_if_idle(one);
    return true;
}

// What becomes of media that was asked for: said, and the descriptors closed that nobody took.
int32_t channel_answer(const char *name, const char *wrong, uint32_t line, int32_t *const *descriptors) {
    voice_descriptors_close(descriptors, wrong == nullptr ? 2 : 0, LIBVOICE_DESCRIPTORS);
    if (wrong != nullptr)
        say("channel %s refuses media: %s", name, wrong);
    else
        channel_tell(&channel_find(name)->sound, "%s", audio_begin_text(&channel_find(name)->sound, line));
    return wrong == nullptr ? 0 : 1;
}

// ------------------------------------------------------------------------------------------- Callbacks of a DSP plugin

const char *list_read(libvoice_signal_t *message, tone_pattern *pattern) {
    voice_tone_t list[kListTones + 1];
    const voice_params_t params = voice_signal_params(message);
    uint32_t count = 0;
    int32_t pause_ms = 0;
    if (!voice_params_get_tones(params, list, kListTones + 1, &count))
        return "plays nothing: no tone list";
    voice_params_get_i32(params, LIBVOICE_PARAM_tonegen_pt_ind, &pause_ms);
    return tone_list_read(list, count, pause_ms, pattern);
}

// A tone sounds with the channel's own voice, and is heard at the far end of its media. @return null, or why it cannot
const char *channel_play(telephone *one, libvoice_signal_t *message, const voice_signal_t *head) {
    tone_pattern pattern = {};
    const network_tone tone = network_tone_of(head->signal);
    if (tone != TONES)
        pattern = tone_pattern_read(country_tone(country, tone)->text);
    const char *wrong = head->signal == LIBVOICE_SIGNAL_tonegen_pt ? list_read(message, &pattern) : nullptr;
    if (wrong != nullptr || pattern.count == 0)
        return wrong;
    tone_player_start(&one->sound.tone, &pattern);
    one->plays = head->signal;
    return nullptr;
}

int32_t dsp_signal(const char *name, libvoice_signal_t *message) {
    const voice_signal_t head = voice_signal_head(message);
    const bool stops = (head.flags & VOICE_SIGNAL_STOP) != 0;
    telephone *one = channel_find(name);
    const char *wrong = nullptr;
    const char *verb = stops ? "ends" : "plays", *signal = libvoice_param_str(head.signal);
    if (one == nullptr) {
        say("channel %s %s %s", name, verb, signal);
        return 0;
    }
    channel_tell(&one->sound, "%s %s", verb, signal);
    if (head.signal == LIBVOICE_SIGNAL_zil_cancel_all_signals || (stops && head.signal == one->plays))
        tone_player_stop(&one->sound.tone);
    else if (!stops)
        wrong = channel_play(one, message, &head);
    if (wrong != nullptr)
        channel_tell(&one->sound, "%s", wrong);
    return wrong == nullptr ? 0 : 1;
}

int32_t dsp_create(const char *name, uint32_t line, void *cnx_info, int32_t **descriptors, const char *endpoint_path) {
    line_media_t media;
    const char *wrong = media_read_connection(cnx_info, &media);
    media.media = (*descriptors)[0];
    media.control = (*descriptors)[1];
    if (wrong == nullptr) {
        telephone *one = channel_find(name);
        if (one == nullptr)
            one = channel_add(name);
        wrong = one == nullptr ? none_wrong(name) : audio_open(&one->sound, line, &media);
        if (one != nullptr)
            channel_free_if_idle(one);
    }
    int32_t result = channel_answer(name, wrong, line, descriptors);
    if (result == 0 && *endpoint_path != 0)
        say("channel %s serves %s", name, endpoint_path);
    return result;
}

int32_t dsp_modify(const char *name, uint32_t line, void *cnx_info, int32_t **descriptors) {
    line_media_t media;
    const char *wrong = media_read_connection(cnx_info, &media);
    media.media = (*descriptors)[0];
    media.control = (*descriptors)[1];
    telephone *one = channel_find(name);
    if (wrong == nullptr)
        wrong = one == nullptr ? "there is no media to change" : audio_change(&one->sound, line, &media);
    return channel_answer(name, wrong, line, descriptors);
}

int32_t dsp_destroy(const char *name, uint32_t line) {
    telephone *one = channel_find(name);
    return one != nullptr && channel_close_media(one, line) ? 0 : 1;
}

// ------------------------------------------------------------------------------------------ Callbacks of every plugin

int32_t plugin_init(const char *name) {
    snprintf(country, sizeof country, "%s", name);
    unproved_tones_say(country);
    for (telephone &one : places)
        audio_set_country(&one.sound, country);
    say("ready country=%s channels on request", country);
    return 0;
}

// A plugin without lines rejects whatever is asked of a line; the library does not test whether a callback is set.
libvoice_callbacks_t callbacks() {
    libvoice_callbacks_t table = line_plugin_callbacks();
    table.voice_plugin_init = plugin_init;
    return table;
}

void channels_close_media() {
    for (telephone &one : places)
        for (uint32_t line = 0; line < kSessions; line++)
            if (one.off_hook)
                channel_close_media(&one, line);
}

void channels_lost() {
    say("application lost");
    channels_close_media();
}

void channels_end() {
    channels_close_media();
    sound_commands_end();
}

void channels_status(int) {
    for (const telephone &one : places)
        for (uint32_t i = 0; i < kSessions; i++)
            if (one.sound.sessions[i].open)
                answer("%d channel %s line=%u %s", one.number, one.sound.who, i, audio_text(&one.sound, i));
}

constexpr plugin_option_t kOptions[] = {MEDIA_FILE_OPTION, {}};

void channels_begin(int) {
    audio_begin(host_bus(), plugin_name());
    sound_commands_begin(places);
    for (uint32_t i = 0; i < kChannels; i++) {
        places[i].number = static_cast<int>(i) + 1;
        audio_start(&places[i].sound, "", kLowestVoice + i * kVoiceStep, channel_hears);
    }
}

constexpr plugin_command_t kCommands[] = {SOUND_COMMANDS, {}};

} // namespace

int main(int count, char **words) {
    libvoice_dsp_callbacks_t dsp = {};
    dsp.dsp_plugin_signal = dsp_signal;
    dsp.dsp_plugin_create = dsp_create;
    dsp.dsp_plugin_modify = dsp_modify;
    dsp.dsp_plugin_destroy = dsp_destroy;
    plugin_program_t program = {};
    program.program = "dsp_plugin";
    program.about = "Simulated DSP channels as a voice plugin.";
    program.name = "dsp1";
    program.stem = "DSP";
    program.options = kOptions;
    program.line_word = "channel";
    program.places = kChannels;
    program.commands = kCommands;
    program.begin = channels_begin;
    program.end = channels_end;
    program.status = channels_status;
    program.callbacks = callbacks;
    program.dsp = &dsp;
    program.lost = channels_lost;
    return plugin_main(&program, count, words);
}

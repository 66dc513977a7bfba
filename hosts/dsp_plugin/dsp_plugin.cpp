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
 *     channel D1C2 hears 700Hz
 *
 * Its objects: <plugin> and <plugin>.EndPoint as every plugin has them, <plugin>.DSPPlugin of class DSPPlugin, below it
 * the template DSP, and in each DSP the template DSP_CHANNEL: dsp1.DSPPlugin.DSP.D1.DSP_CHANNEL.D1C1.
 */
#include "audio.h"
#include "console.h"
#include "descriptors.h"
#include "host.h"
#include "kex_host.h"
#include "plugin.h"
#include "telephone.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

// Settings.
constexpr uint32_t kChannels = 16;
constexpr uint32_t kLowestTone = 500; // Hz; each next channel has 40 Hz more
constexpr uint32_t kToneStep = 40;
const char *plugin_name = "dsp1"; // --name

// What a channel that media was set up for keeps. The library's objects know only its name.
struct channel {
    bool used;
    char name[64];
    audio sound;
};
channel channels[kChannels];

constexpr char kHelp[] = "usage: dsp_plugin [options]\n"
                         "Simulated DSP channels as a voice plugin.\n"
                         "\n"
                         "  --name NAME        plugin name, at most 19 characters (dsp1)\n" HOST_OPTIONS_HELP "\n"
                         "Commands, one per line: status | help | quit\n";

void hears(audio *sound, const char *what) {
    say("channel %s hears %s", sound->who, *what == 0 ? "silence" : what);
}

channel *channel_of(const char *name) {
    for (channel &channel : channels)
        if (channel.used && strcmp(channel.name, name) == 0)
            return &channel;
    return nullptr;
}

channel *new_channel(const char *name) {
    for (channel &channel : channels) {
        if (channel.used || strlen(name) >= sizeof channel.sound.who)
            continue;
        channel.used = true;
        snprintf(channel.name, sizeof channel.name, "%s", name);
        snprintf(channel.sound.who, sizeof channel.sound.who, "%s", name);
        return &channel;
    }
    return nullptr;
}

void say_media(const channel *channel, uint32_t line) {
    say("channel %s %s line=%u %s", channel->name,
        channel->sound.sessions[line].format.mode == VOICE_MODE_INACTIVE ? "on hold" : "talking", line,
        audio_text(&channel->sound, line));
}

// A channel without media leaves its place to another one.
void release_if_idle(channel *channel) {
    bool idle = true;
    for (const media_session &session : channel->sound.sessions)
        idle = idle && !session.open;
    channel->used = !idle;
}

void end_media(channel *channel, uint32_t line) {
    media_statistics statistics;
    if (audio_close(&channel->sound, line, &statistics))
        say("channel %s media ended line=%u %s", channel->name, line, media_statistics_text(&statistics));
    release_if_idle(channel);
}

// ------------------------------------------------------------------------------------------- Callbacks of a DSP plugin

int32_t dsp_signal(const char *name, libvoice_signal_t *message) {
    // The bytes are as they came, unmeasured: believe no length beyond the block that the bus hands out at least.
    constexpr uint32_t kReadable = 1024 - sizeof(voice_signal_t);
    voice_signal_t head;
    memcpy(&head, message, sizeof head);
    if (head.length > kReadable) {
        say("channel %s ignores a signal of %u bytes", name, head.length);
        return 1;
    }
    say("channel %s plays %s", name, libvoice_param_str(head.signal));
    return 0;
}

int32_t dsp_create(const char *name, uint32_t line, void *cnx_info, int32_t **descriptors, const char *endpoint_path) {
    media_format format;
    const char *wrong = media_read_connection(cnx_info, &format);
    channel *channel = wrong != nullptr ? nullptr : channel_of(name);
    if (wrong == nullptr && channel == nullptr)
        channel = new_channel(name);
    if (wrong == nullptr && channel == nullptr)
        wrong = "no channel is free";
    if (wrong == nullptr) {
        descriptors_close(*descriptors, 2, LIBVOICE_DESCRIPTORS);
        wrong = audio_open(&channel->sound, line, &format, (*descriptors)[0], (*descriptors)[1], 0, 0);
        release_if_idle(channel);
    } else {
        descriptors_close(*descriptors, 0, LIBVOICE_DESCRIPTORS);
    }
    if (wrong != nullptr) {
        say("channel %s refuses media: %s", name, wrong);
        return 1;
    }
    say_media(channel, line);
    if (*endpoint_path != 0)
        say("channel %s serves %s", name, endpoint_path);
    return 0;
}

int32_t dsp_modify(const char *name, uint32_t line, void *cnx_info, int32_t **descriptors) {
    media_format format;
    const char *wrong = media_read_connection(cnx_info, &format);
    channel *channel = channel_of(name);
    if (wrong == nullptr && channel == nullptr)
        wrong = "there is no media to change";
    if (wrong == nullptr) {
        descriptors_close(*descriptors, 2, LIBVOICE_DESCRIPTORS);
        wrong = audio_change(&channel->sound, line, &format, (*descriptors)[0], (*descriptors)[1]);
    } else {
        descriptors_close(*descriptors, 0, LIBVOICE_DESCRIPTORS);
    }
    if (wrong != nullptr) {
        say("channel %s refuses media: %s", name, wrong);
        return 1;
    }
    say_media(channel, line);
    return 0;
}

int32_t dsp_destroy(const char *name, uint32_t line) {
    channel *channel = channel_of(name);
    if (channel == nullptr || line >= kSessions || !channel->sound.sessions[line].open)
        return 1;
    end_media(channel, line);
    return 0;
}

// ------------------------------------------------------------------------------------------ Callbacks of every plugin

int32_t plugin_init(const char *country) {
    say("ready country=%s channels on request", country);
    return 0;
}

int32_t plugin_exit(uint32_t reason) {
    say("exit reason=%u", reason);
    host_stop();
    return 0;
}

void application_lost(kex_t *, peer_t *, void *) {
    say("application lost");
    for (channel &channel : channels)
        for (uint32_t line = 0; line < kSessions; line++)
            if (channel.used && channel.sound.sessions[line].open)
                end_media(&channel, line);
}

const char *command(char *line) {
    if (strcmp(line, "status") == 0) {
        answer("%s %s", plugin_name, plugin_is_connected() ? "connected" : "without application");
        for (const channel &channel : channels)
            for (uint32_t i = 0; i < kSessions; i++)
                if (channel.used && channel.sound.sessions[i].open)
                    answer("channel %s line=%u %s", channel.name, i, audio_text(&channel.sound, i));
        return nullptr;
    }
    if (strcmp(line, "help") == 0) {
        answer("status; help; quit; watch");
        return nullptr;
    }
    if (strcmp(line, "quit") == 0) {
        host_terminate();
        return nullptr;
    }
    return refuse("unknown command '%s'; try help", line);
}

void read_options(int count, char **words) {
    enum { NAME = 1 };
    static const option options[] = {{"name", required_argument, nullptr, NAME}, HOST_OPTIONS};
    for (int code; (code = getopt_long(count, words, "", options, nullptr)) != -1;) {
        if (code == NAME)
            plugin_name = optarg;
        else
            host_option(code, optarg, kHelp);
    }
    if (optind < count)
        host_usage_error("'%s' is no option", words[optind]);
}

void declare_objects(kex_t *bus) {
    char path[128];
    plugin_declare(plugin_name, "DSP");
    snprintf(path, sizeof path, "%s.DSPPlugin", plugin_name);
    bool declared = kex_declareObject(bus, path, "DSPPlugin") != nullptr;
    snprintf(path, sizeof path, "%s.DSPPlugin.DSP", plugin_name);
    declared = declared && kex_declareTemplate(bus, path, "DSP") != nullptr;
    snprintf(path, sizeof path, "%s.DSPPlugin.DSP.DSP_CHANNEL", plugin_name);
    declared = declared && kex_declareTemplate(bus, path, "DSP_CHANNEL") != nullptr;
    if (!declared)
        host_fail("cannot declare %s", path);
}

} // namespace

int main(int count, char **words) {
    read_options(count, words);
    kex_t *bus = host_start("dsp_plugin");
    declare_objects(bus);
    audio_begin(bus);
    for (uint32_t i = 0; i < kChannels; i++)
        audio_start(&channels[i].sound, "", kLowestTone + i * kToneStep, hears);
    kex_onPeerClosed(bus, application_lost, nullptr);
    bool keep_going = host_control_path() != nullptr || !host_reads_stdin();
    if (!console_start(bus, host_reads_stdin(), host_control_path(), keep_going, command, host_terminate))
        return kExitFailure;

    libvoice_dsp_callbacks_t dsp = {};
    dsp.dsp_plugin_signal = dsp_signal;
    dsp.dsp_plugin_create = dsp_create;
    dsp.dsp_plugin_modify = dsp_modify;
    dsp.dsp_plugin_destroy = dsp_destroy;
    libvoice_dsp_init(dsp);
    // Without endpoints most of the table is never asked for, but the library tests no slot: each must be there.
    libvoice_callbacks_t callbacks = {};
    callbacks.voice_plugin_init = plugin_init;
    callbacks.voice_plugin_exit = plugin_exit;
    callbacks.voice_plugin_signal = [](libvoice_signal_t *) -> int32_t { return 1; };
    callbacks.voice_plugin_create = [](int32_t, uint32_t, void *, int32_t **descriptors) -> int32_t {
        descriptors_close(*descriptors, 0, LIBVOICE_DESCRIPTORS);
        return 1;
    };
    callbacks.voice_plugin_modify = callbacks.voice_plugin_create;
    callbacks.voice_plugin_destroy = [](int32_t, uint32_t) -> int32_t { return 1; };
    callbacks.voice_plugin_get = [](libvoice_param_set_t *, libvoice_param_set_t **, int32_t) -> int32_t { return 1; };
    callbacks.voice_plugin_set = [](libvoice_param_set_t *) -> int32_t { return 1; };
    callbacks.voice_plugin_create_ctx = [](uint32_t) -> int32_t { return 1; };
    callbacks.voice_plugin_add_stream = [](uint32_t, void *stream_info, int32_t **descriptors, int32_t,
                                           uint32_t) -> int32_t {
        constexpr uint32_t kSent = 3; // only these entries of the array are filled
        free(stream_info);
        descriptors_close(*descriptors, 0, kSent);
        return 1;
    };
    callbacks.voice_plugin_modify_stream = [](uint32_t, void *stream_info) -> int32_t {
        free(stream_info);
        return 1;
    };
    callbacks.voice_plugin_remove_stream = [](uint32_t, uint32_t) -> int32_t { return 1; };
    callbacks.voice_plugin_destroy_ctx = [](uint32_t) -> int32_t { return 1; };
    libvoice_init(callbacks);

    int result = host_run(plugin_leave);
    console_stop();
    host_end();
    return result;
}

// SPDX-License-Identifier: MIT
// Driving a DSP plugin over the bus.
#include "dsp.h"

#include "codecs.h"
#include "console.h"
#include "host.h"
#include "media.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr uint32_t kLine = 0;
constexpr int kChannels = 2;

// The DSP made last, whose media later commands change. Its plugin numbers nothing itself.
uint32_t last_dsp;
uint16_t ports[kChannels];

// What a request was about, for the output that says its answer.
struct question {
    char text[160];
    bool answered;
};

void question_answered(request_t *request, reply_item_t *item) {
    question *asked = static_cast<question *>(request_data(request));
    int yes = 0;
    if (item == nullptr) { // complete: a plugin that died has given no item at all, or an error
        if (!asked->answered)
            say("dsp %s: no answer", asked->text);
        free(asked);
        request_destroy(request);
        return;
    }
    if (asked->answered)
        return; // the first item says it
    asked->answered = true;
    if (reply_item_type(item) == REPLY_ITEM_ERROR)
        say("dsp %s: %s (%s)", asked->text, reply_item_errorDescription(item), reply_item_errorInfo(item));
    else if (variant_toBool(reply_item_returnValue(item), &yes))
        say("dsp %s: %s", asked->text, yes ? "true" : "false");
}

request_t *request_begin(const char *path, const char *function) {
    return request_create_executeFunction(path, function, LIBVOICE_REQUEST_FLAGS_MEDIA);
}

void request_add_text(request_t *request, const char *name, const char *text) {
    variant_t value;
    variant_initialize(&value, VARIANT_TEXT);
    variant_setChar(&value, text);
    request_addParameter(request, name, &value);
    variant_cleanup(&value);
}

void request_add_number(request_t *request, const char *name, uint32_t number) {
    variant_t value;
    variant_initialize(&value, VARIANT_UINT32);
    variant_setUInt32(&value, number);
    request_addParameter(request, name, &value);
    variant_cleanup(&value);
}

void request_add_bytes(request_t *request, const char *name, const void *bytes, uint32_t length) {
    variant_t value;
    variant_initialize(&value, VARIANT_BYTES);
    variant_setByteArray(&value, bytes, length);
    request_addParameter(request, name, &value);
    variant_cleanup(&value);
}

void request_add_descriptors(request_t *request, const int32_t *descriptors, int count) {
    variant_t list, value;
    variant_initialize(&list, VARIANT_LIST);
    variant_initialize(&value, VARIANT_FD);
    for (int i = 0; i < count; i++) {
        variant_setFd(&value, descriptors[i]);
        variant_list_add(variant_da_list(&list), &value);
    }
    request_addParameter(request, "filedesc", &list);
    variant_cleanup(&value);
    variant_cleanup(&list);
}

// Sends it and lets the answer come when it comes. @return whether it left.
bool request_ask(request_t *request, const char *plugin, const char *what, const char *object) {
    question *asked = static_cast<question *>(calloc(1, sizeof *asked));
    if (request == nullptr || asked == nullptr) {
        free(asked);
        request_destroy(request);
        return false;
    }
    snprintf(asked->text, sizeof asked->text, "%s %s %s", plugin, what, object);
    request_setData(request, asked);
    request_setReplyHandler(request, question_answered);
    if (kex_sendRequest(host_bus(), libvoice_plugin_get_peer_by_name(plugin), request))
        return true;
    free(asked); // no handler will ever run
    request_destroy(request);
    return false;
}

void channel_path(const char *plugin, int channel, char *path, size_t size, char *name, size_t name_size) {
    snprintf(name, name_size, "D%uC%d", last_dsp, channel + 1);
    snprintf(path, size, "%s.DSPPlugin.DSP.D%u.DSP_CHANNEL.%s", plugin, last_dsp, name);
}

bool dsp_create(const char *plugin) {
    char dsp[16], path[LIBVOICE_ENDPOINT_PATH_BYTES];
    snprintf(dsp, sizeof dsp, "D%u", last_dsp);
    snprintf(path, sizeof path, "%s.DSPPlugin", plugin);
    request_t *request = request_begin(path, "createDsp");
    request_add_text(request, "name", dsp);
    if (!request_ask(request, plugin, "createDsp", dsp))
        return false;
    for (int i = 0; i < kChannels; i++) {
        char name[16];
        channel_path(plugin, i, path, sizeof path, name, sizeof name);
        snprintf(path, sizeof path, "%s.DSPPlugin.DSP.%s", plugin, dsp);
        request = request_begin(path, "createDspChannel");
        request_add_text(request, "name", name);
        if (!request_ask(request, plugin, "createDspChannel", name))
            return false;
    }
    return true;
}

bool channel_start(const char *plugin, int channel, const voice_codec_t *codec) {
    char name[16], path[LIBVOICE_ENDPOINT_PATH_BYTES];
    channel_path(plugin, channel, path, sizeof path, name, sizeof name);
    int32_t descriptors[3] = {-1, -1, -1}, *all = descriptors;
    if (!media_open_sockets(ports[channel], ports[1 - channel], descriptors))
        return false;
    voice_cnx_info_t info;
    media_fill_connection(codec, VOICE_MODE_SEND_RECEIVE, &info);
    request_t *request = request_begin(path, "create");
    request_add_bytes(request, "cnx_info", &info, LIBVOICE_CNX_INFO_BYTES);
    request_add_descriptors(request, descriptors, 3);
    request_add_text(request, "endpoint_path", "");
    request_add_number(request, "ep_line_id", kLine);
    bool sent = request_ask(request, plugin, "create", name);
    voice_descriptors_close(&all, 0, 3);
    return sent;
}

bool channel_play(const char *plugin, int channel, uint32_t signal) {
    char name[16], path[LIBVOICE_ENDPOINT_PATH_BYTES];
    channel_path(plugin, channel, path, sizeof path, name, sizeof name);
    voice_signal_message_t message;
    voice_signal_begin(&message, 0, signal, kLine);
    request_t *request = request_begin(path, "signal");
    request_add_bytes(request, "signal", &message, static_cast<uint32_t>(sizeof message.record));
    return request_ask(request, plugin, "signal", name);
}

bool channel_change(const char *plugin, int channel, const voice_codec_t *codec) {
    char name[16], path[LIBVOICE_ENDPOINT_PATH_BYTES];
    channel_path(plugin, channel, path, sizeof path, name, sizeof name);
    const int32_t keep[3] = {-1, -1, -1};
    voice_cnx_info_t info;
    media_fill_connection(codec, VOICE_MODE_SEND_RECEIVE, &info);
    request_t *request = request_begin(path, "modify");
    request_add_bytes(request, "cnx_info", &info, LIBVOICE_CNX_INFO_BYTES);
    request_add_descriptors(request, keep, 3);
    request_add_number(request, "ep_line_id", kLine);
    return request_ask(request, plugin, "modify", name);
}

bool channel_destroy(const char *plugin, int channel) {
    char name[16], path[LIBVOICE_ENDPOINT_PATH_BYTES];
    channel_path(plugin, channel, path, sizeof path, name, sizeof name);
    request_t *request = request_begin(path, "destroy");
    request_add_number(request, "ep_line_id", kLine);
    return request_ask(request, plugin, "destroy", name);
}

} // namespace

const char *dsp_command(const char *plugin, const char *verb, const char *argument) {
    if (plugin == nullptr || libvoice_plugin_get_entry(plugin) == nullptr)
        return command_error("there is no plugin '%s'", plugin == nullptr ? "" : plugin);
    bool sent = true;
    if (verb == nullptr) {
        for (uint16_t &port : ports)
            port = media_take_ports();
        if (ports[0] == 0 || ports[1] == 0 || ports[0] == ports[1]) // the only pair is found twice
            return media_ports_missing();
        last_dsp++;
        // All of it at once: requests are done in the order in which they are sent.
        sent = dsp_create(plugin);
        for (int i = 0; sent && i < kChannels; i++)
            sent = channel_start(plugin, i, codec_by_name("PCMA"));
        sent = sent && channel_play(plugin, 0, LIBVOICE_SIGNAL_cg_rt);
    } else if (last_dsp == 0) {
        return "make a DSP first: dsp PLUGIN";
    } else if (strcmp(verb, "codec") == 0) {
        const voice_codec_t *codec = argument == nullptr ? nullptr : codec_by_name(argument);
        if (codec == nullptr)
            return "dsp PLUGIN codec CODEC: a codec like PCMA, PCMU";
        for (int i = 0; sent && i < kChannels; i++)
            sent = channel_change(plugin, i, codec);
    } else if (strcmp(verb, "destroy") == 0) {
        for (int i = 0; sent && i < kChannels; i++)
            sent = channel_destroy(plugin, i);
    } else {
        return "dsp PLUGIN | dsp PLUGIN codec CODEC | dsp PLUGIN destroy";
    }
    return sent ? nullptr : "not sent";
}

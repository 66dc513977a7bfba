// SPDX-License-Identifier: MIT
// Lines of a plugin: registered, brought to rest, deregistered.
#include "line_plugin.h"

#include "codecs.h"
#include "console.h"
#include "host.h"
#include "line.h"
#include "voice_start.h"

#include <string.h>

namespace {

plugin_line lines[LIBVOICE_ENDPOINTS];
uint32_t lines_used;
kex_timer_t *deregister_timer;

bool line_register(line_t *line, const char *country) {
    int is_new;
    int32_t endpoint;
    if (line->withdrawn)
        return false;
    if (voice_endpoint_register(line->type, line->name, line->codecs, line->codec_count, &endpoint, &is_new) !=
        nullptr) {
        line->endpoint = -1;
        say("%d refused: the application does not take %s", line->number, line->name);
        return false;
    }
    if (!is_new) {
        line->endpoint = endpoint;
        return true;
    }
    line->endpoint = -1; // nothing is reported meanwhile: this application knows nothing of what was before
    line_rest(line);
    line->endpoint = endpoint;
    say("%d registered %s endpoint=%d", line->number, line->name, endpoint);
    if (line->driver->registered != nullptr)
        line->driver->registered(line->userdata, country);
    return true;
}

// The application is there and names the country. Lines are registered here and nowhere else: each new connection comes
// through here. Always 0: any other answer would end the process.
int32_t init_callback(const char *country) {
    int registered = 0;
    for (uint32_t i = 0; i < lines_used; i++)
        registered += line_register(&lines[i], country);
    say("ready country=%s lines=%d", country, registered);
    for (uint32_t i = 0; i < lines_used; i++)
        line_report_state(&lines[i]);
    return 0;
}

int32_t exit_callback(uint32_t reason) {
    say("exit reason=%u", reason);
    host_stop();
    return 0;
}

int32_t channel_event_callback(libvoice_event_t *, uint32_t) {
    return 1; // a telephone line has no channels
}

void deregister_asked_lines(kex_timer_t *) {
    for (uint32_t i = 0; i < lines_used; i++) {
        if (!lines[i].deregister_asked)
            continue;
        lines[i].deregister_asked = false;
        const char *wrong = line_deregister(&lines[i]);
        if (wrong != nullptr)
            say("%s", wrong);
    }
}

} // namespace

uint32_t line_count() {
    return lines_used;
}

line_t *line_at(uint32_t index) {
    return &lines[index];
}

line_t *line_of_endpoint(int32_t endpoint) {
    for (uint32_t i = 0; i < lines_used; i++)
        if (endpoint >= 0 && lines[i].endpoint == endpoint)
            return &lines[i];
    return nullptr;
}

void line_rest(line_t *line) {
    for (uint32_t i = 0; i < LINE_APPEARANCES; i++)
        line_close_media(line, i);
    if (line->driver->stop != nullptr)
        line->driver->stop(line->userdata, LIBVOICE_SIGNAL_zil_cancel_all_signals);
    if (line->driver->lost != nullptr)
        line->driver->lost(line->userdata);
}

line_t *line_add(const line_driver_t *driver, void *userdata, int32_t type, const char *name, const char *codecs) {
    if (lines_used == LIBVOICE_ENDPOINTS || voice_endpoint_name_wrong(name) != nullptr ||
        (driver->open != nullptr && driver->close == nullptr))
        return nullptr;
    plugin_line *line = &lines[lines_used];
    int count = codecs_parse(codecs, line->codecs, LIBVOICE_ENDPOINT_CODECS);
    if (count < 0)
        return nullptr;
    line->driver = driver;
    line->userdata = userdata;
    line->number = static_cast<int>(++lines_used);
    line->type = type;
    memcpy(line->name, name, strlen(name) + 1);
    line->codec_count = static_cast<uint32_t>(count);
    line->endpoint = -1;
    return line;
}

libvoice_callbacks_t line_plugin_callbacks() {
    libvoice_callbacks_t callbacks = {};
    callbacks.voice_plugin_init = init_callback;
    callbacks.voice_plugin_exit = exit_callback;
    callbacks.voice_plugin_signal = line_signal_callback;
    callbacks.voice_plugin_event = channel_event_callback;
    callbacks.voice_plugin_create = line_create_callback;
    callbacks.voice_plugin_modify = line_modify_callback;
    callbacks.voice_plugin_destroy = line_destroy_callback;
    callbacks.voice_plugin_get = line_get_callback;
    callbacks.voice_plugin_set = line_set_callback;
    callbacks.voice_plugin_create_ctx = line_create_context_callback;
    callbacks.voice_plugin_add_stream = line_add_stream_callback;
    callbacks.voice_plugin_modify_stream = line_modify_stream_callback;
    callbacks.voice_plugin_remove_stream = line_remove_stream_callback;
    callbacks.voice_plugin_destroy_ctx = line_destroy_context_callback;
    return callbacks;
}

void line_plugin_application_lost() {
    say("application lost");
    for (uint32_t i = 0; i < lines_used; i++) {
        lines[i].endpoint = -1;
        line_rest(&lines[i]);
    }
    line_contexts_forget();
}

const char *line_deregister(line_t *line) {
    if (line->endpoint < 0)
        return command_error("%d is not registered", line->number);
    uint32_t result = libvoice_deregister_endpoint(line->endpoint); // waits for the application
    if (result != LIBVOICE_OK)
        return command_error("%d cannot be deregistered: %s", line->number, libvoice_strerror(result));
    line->withdrawn = true;
    line->endpoint = -1;
    line_rest(line);
    say("%d deregistered", line->number);
    return nullptr;
}

void line_plugin_close_media() {
    for (uint32_t i = 0; i < lines_used; i++) {
        lines[i].endpoint = -1; // nothing is reported: the number may be another line's by now
        for (uint32_t k = 0; k < LINE_APPEARANCES; k++)
            line_close_media(&lines[i], k);
    }
}

void line_plugin_end() {
    if (deregister_timer != nullptr)
        kex_timer_destroy(deregister_timer);
    deregister_timer = nullptr;
    line_contexts_forget();
    for (uint32_t i = 0; i < lines_used; i++)
        lines[i] = {};
    lines_used = 0;
}

void line_deregister_later(line_t *line) {
    if (deregister_timer == nullptr) {
        deregister_timer = kex_timer_create();
        kex_timer_setHandler(deregister_timer, deregister_asked_lines);
    }
    line->deregister_asked = true;
    kex_timer_start(deregister_timer, 0);
}

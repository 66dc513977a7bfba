/* SPDX-License-Identifier: MIT */
/* The callbacks of a door station: its line is off hook as soon as there is an application. */
#define _POSIX_C_SOURCE 200809L /* dprintf() */
#include "door.h"

#include "voice_start.h"

static int32_t init(const char *country) {
    const voice_codec_t pcma = VOICE_CODEC_PCMA;
    int32_t endpoint;
    int is_new;
    const char *wrong = voice_endpoint_register(VOICE_ENDPOINT_FXS, "DOOR1", &pcma, 1, &endpoint, &is_new);
    if (wrong == NULL && !is_new)
        return 0;
    if (wrong == NULL) {
        dprintf(STDOUT_FILENO, "registered in %s\n", country);
        wrong = voice_event_report(endpoint, LIBVOICE_EVENT_al_of, 0);
    }
    if (wrong != NULL)
        dprintf(STDERR_FILENO, "DOOR1: %s\n", wrong);
    return 0;
}

/* A door is not called. */
static int32_t play(libvoice_signal_t *message) {
    const voice_signal_t signal = voice_signal_head(message);
    dprintf(STDOUT_FILENO, "hears %s\n", libvoice_param_str(signal.signal));
    if (signal.signal != LIBVOICE_SIGNAL_al_ri)
        return 0;
    voice_event_report_cause(signal.endpoint, signal.line, VOICE_CAUSE_UNSUPPORTED, "a door does not ring");
    return -1;
}

/* A door station of one's own hears and speaks here; this one only takes the sockets. */
static int32_t media(int32_t endpoint, uint32_t line, void *cnx_info, int32_t **descriptors) {
    (void)endpoint, (void)line, (void)cnx_info;
    voice_descriptors_close(descriptors, 0, LIBVOICE_DESCRIPTORS);
    return 0;
}

static int32_t end_media(int32_t endpoint, uint32_t line) {
    (void)endpoint, (void)line;
    return 0;
}

libvoice_callbacks_t door_callbacks(void) {
    libvoice_callbacks_t callbacks = voice_plugin_rejections();
    callbacks.voice_plugin_init = init;
    callbacks.voice_plugin_signal = play;
    callbacks.voice_plugin_create = media;
    callbacks.voice_plugin_modify = media;
    callbacks.voice_plugin_destroy = end_media;
    return callbacks;
}

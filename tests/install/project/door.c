/* SPDX-License-Identifier: MIT */
/* The callbacks of a door station: its line is off hook as soon as there is an application. */
#define _POSIX_C_SOURCE 200809L /* dprintf() */
#include "door.h"

#include "voice_records.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

static int32_t init(const char *country) {
    const voice_codec_t pcma = {LIBVOICE_CODEC_PCMA, 8, 1u << 1, 64000};
    const void *codecs[] = {&pcma, NULL};
    voice_event_t off_hook = {-1, LIBVOICE_EVENT_al_of, 0, 0, 0};
    if (libvoice_get_endpoint_index_by_name("DOOR1") == -1 &&
        libvoice_register_endpoint(VOICE_ENDPOINT_FXS, "DOOR1", NULL, codecs, &off_hook.endpoint) == LIBVOICE_OK &&
        off_hook.endpoint >= 0) {
        dprintf(STDOUT_FILENO, "registered in %s\n", country);
        libvoice_send_event((libvoice_event_t *)&off_hook);
    }
    return 0;
}

/* A door is not called. */
static int32_t play(libvoice_signal_t *message) {
    const voice_signal_t *signal = (const voice_signal_t *)message;
    voice_event_t cause = {signal->endpoint, LIBVOICE_EVENT_g_cause, signal->line, 0, 0};
    dprintf(STDOUT_FILENO, "hears %s\n", libvoice_param_str(signal->signal));
    if (signal->signal != LIBVOICE_SIGNAL_al_ri)
        return 0;
    libvoice_send_event((libvoice_event_t *)&cause);
    return -1;
}

static int32_t media(int32_t endpoint, uint32_t line, void *cnx_info, int32_t **descriptors) {
    (void)endpoint, (void)line, (void)cnx_info;
    for (int i = 0; i < LIBVOICE_DESCRIPTORS; i++)
        close((*descriptors)[i]);
    return 0;
}

static int32_t end_media(int32_t endpoint, uint32_t line) {
    (void)endpoint, (void)line;
    return 0;
}

static int32_t get(libvoice_param_set_t *request, libvoice_param_set_t **result, int32_t reserved) {
    (void)request, (void)result, (void)reserved;
    return -1;
}

static int32_t set(libvoice_param_set_t *parameters) {
    (void)parameters;
    return -1;
}

static int32_t context(uint32_t id) {
    (void)id;
    return -1;
}

static int32_t add_stream(uint32_t id, void *info, int32_t **descriptors, int32_t endpoint, uint32_t line) {
    (void)id;
    free(info);
    media(endpoint, line, NULL, descriptors);
    return -1;
}

static int32_t modify_stream(uint32_t id, void *info) {
    (void)id;
    free(info);
    return -1;
}

static int32_t remove_stream(uint32_t id, uint32_t stream) {
    (void)id, (void)stream;
    return -1;
}

libvoice_callbacks_t door_callbacks(void) {
    const libvoice_callbacks_t callbacks = {init, NULL, play,    NULL,       media,         media,         end_media,
                                            get,  set,  context, add_stream, modify_stream, remove_stream, context};
    return callbacks;
}

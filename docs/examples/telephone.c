/* SPDX-License-Identifier: MIT */
/* A whole voice plugin: one telephone whose handset lies beside it. It prints what is to be heard there. */
#include "kex_host.h"
#include "voice_records.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

static int32_t init(const char *country) {
    const voice_codec_t pcma = {LIBVOICE_CODEC_PCMA, 8, 1u << 1, 64000};
    const void *codecs[] = {&pcma, NULL};
    voice_event_t event = {.endpoint = -1, .event = LIBVOICE_EVENT_al_of};
    if (libvoice_get_endpoint_index_by_name("TEL1") == -1 && /* "init" may come twice */
        libvoice_register_endpoint(VOICE_ENDPOINT_FXS, "TEL1", NULL, codecs, &event.endpoint) == LIBVOICE_OK &&
        event.endpoint >= 0)
        libvoice_send_event((libvoice_event_t *)&event);
    return 0; /* anything else ends the process */
}
static int32_t leave(uint32_t reason) {
    kex_stop(libvoice_get_kex_handler());
    return 0;
}
static int32_t play(libvoice_signal_t *message) {
    const voice_signal_t *signal = (const voice_signal_t *)message;
    dprintf(1, "%s %s\n", signal->flags & VOICE_SIGNAL_STOP ? "ends" : "begins", libvoice_param_str(signal->signal));
    return 0;
}
static int32_t media(int32_t endpoint, uint32_t line, void *cnx_info, int32_t **fds) {
    for (int i = 0; i < LIBVOICE_DESCRIPTORS; i++) /* ours from here on; a driver gives them to its DSP */
        close((*fds)[i]);
    return 0;
}
static int32_t end_media(int32_t endpoint, uint32_t line) {
    return 0;
}
static int32_t get(libvoice_param_set_t *request, libvoice_param_set_t **result, int32_t reserved) {
    return -1; /* no parameters here, and no conferences below: every callback but the event's must be set */
}
static int32_t set(libvoice_param_set_t *params) {
    return -1;
}
static int32_t context(uint32_t id) {
    return -1;
}
static int32_t add(uint32_t id, void *stream_info, int32_t **fds, int32_t endpoint, uint32_t line) {
    free(stream_info); /* passes to the callback, also when it fails */
    return media(endpoint, line, NULL, fds) - 1;
}
static int32_t modify(uint32_t id, void *stream_info) {
    free(stream_info);
    return -1;
}
static int32_t drop(uint32_t id, uint32_t stream) {
    return -1;
}
int main(void) {
    const libvoice_callbacks_t callbacks = {init, leave, play,    NULL, media,  media, end_media,
                                            get,  set,   context, add,  modify, drop,  context};
    kex_t *bus = kex_create("tel");
    if (!kex_declareFunctions(bus, libvoice_bus_functions(), LIBVOICE_BUS_FUNCTIONS, LIBVOICE_BUS_FUNCTION_COLUMNS))
        return 1;
    kex_declareObject(bus, "tel", NULL);
    kex_declareTemplate(bus, "tel.EndPoint", "EndPoint");
    libvoice_set_kex_handler(bus);
    libvoice_set_pluginname("tel");
    libvoice_init(callbacks);
    const int status = kex_run(bus);
    kex_destroy(bus);
    return status;
}

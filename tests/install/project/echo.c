/* SPDX-License-Identifier: MIT */
/* A driver with media: each line has an RTP socket and a control socket while it talks, watched from the bus's loop. */
#include "echo.h"

#include "libvoice_plugin.h"
#include "voice_records.h"

#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

enum { LINES = 2, NONE = -1 };

struct echo_line {
    const char *name;
    int32_t endpoint; /* its number; NONE: not registered */
    int media, control;
};

static kex_t *bus;
static struct echo_line lines[LINES] = {{"ECHO1", NONE, NONE, NONE}, {"ECHO2", NONE, NONE, NONE}};

static struct echo_line *line_of(int32_t endpoint) {
    for (int i = 0; i < LINES; i++)
        if (endpoint != NONE && lines[i].endpoint == endpoint)
            return &lines[i];
    return NULL;
}

/* ----------------------------------------------------------------------------------------------------------- Media */

static void send_back(int media, void *userdata) {
    char packet[2048];
    (void)userdata;
    for (ssize_t got; (got = recv(media, packet, sizeof packet, MSG_DONTWAIT)) > 0;)
        (void)send(media, packet, (size_t)got, MSG_DONTWAIT | MSG_NOSIGNAL);
}

static void drop(int control, void *userdata) {
    char packet[2048];
    (void)userdata;
    (void)recv(control, packet, sizeof packet, MSG_DONTWAIT);
}

static void close_one(int *socket) {
    if (*socket < 0)
        return;
    kex_unwatch(bus, *socket); /* before the number can be another descriptor's */
    close(*socket);
    *socket = NONE;
}

static void close_media(struct echo_line *of) {
    close_one(&of->media);
    close_one(&of->control);
}

/* The descriptors are ours, whatever we answer. */
static int32_t create(int32_t endpoint, uint32_t appearance, void *cnx_info, int32_t **descriptors) {
    struct echo_line *of = line_of(endpoint);
    (void)appearance, (void)cnx_info;
    for (int i = of == NULL ? 0 : 2; i < LIBVOICE_DESCRIPTORS; i++)
        if ((*descriptors)[i] >= 0)
            close((*descriptors)[i]);
    if (of == NULL)
        return -1;
    close_media(of);
    of->media = (*descriptors)[0];
    of->control = (*descriptors)[1];
    if (kex_watch(bus, of->media, NULL, send_back) && kex_watch(bus, of->control, NULL, drop))
        return 0;
    close_media(of);
    return -1;
}

/* A change of codec or direction: the sockets stay. */
static int32_t modify(int32_t endpoint, uint32_t appearance, void *cnx_info, int32_t **descriptors) {
    (void)endpoint, (void)appearance, (void)cnx_info;
    for (int i = 0; i < LIBVOICE_DESCRIPTORS; i++)
        if ((*descriptors)[i] >= 0)
            close((*descriptors)[i]);
    return 0;
}

static int32_t destroy(int32_t endpoint, uint32_t appearance) {
    struct echo_line *of = line_of(endpoint);
    (void)appearance;
    if (of == NULL || of->media < 0)
        return -1;
    close_media(of);
    return 0;
}

/* ----------------------------------------------------------------------------------------------------------- Calls */

static int32_t init(const char *country) {
    const voice_codec_t pcma = {LIBVOICE_CODEC_PCMA, 8, 1u << 1, 64000};
    const void *codecs[] = {&pcma, NULL};
    (void)country;
    for (int i = 0; i < LINES; i++)
        if (libvoice_get_endpoint_index_by_name(lines[i].name) == -1)
            libvoice_register_endpoint(VOICE_ENDPOINT_FXS, lines[i].name, NULL, codecs, &lines[i].endpoint);
    return 0;
}

/* Each call is answered when it rings. */
static int32_t play(libvoice_signal_t *message) {
    const voice_signal_t *signal = (const voice_signal_t *)message;
    voice_event_t off_hook = {signal->endpoint, LIBVOICE_EVENT_al_of, signal->line, 0, 0};
    voice_event_t on_hook = {signal->endpoint, LIBVOICE_EVENT_al_on, signal->line, 0, 0};
    if (signal->signal == LIBVOICE_SIGNAL_al_ri)
        libvoice_send_event((libvoice_event_t *)&off_hook);
    if (signal->signal == LIBVOICE_SIGNAL_cg_bt)
        libvoice_send_event((libvoice_event_t *)&on_hook);
    return 0;
}

static void application_lost(kex_t *on, peer_t *peer, void *userdata) {
    (void)on, (void)peer, (void)userdata;
    for (int i = 0; i < LINES; i++) {
        close_media(&lines[i]);
        lines[i].endpoint = NONE;
    }
}

static int32_t leave(uint32_t reason) {
    (void)reason;
    kex_stop(bus);
    return 0;
}

static int32_t no_parameters(libvoice_param_set_t *parameters) {
    (void)parameters;
    return -1;
}

static int32_t no_answers(libvoice_param_set_t *request, libvoice_param_set_t **result, int32_t reserved) {
    (void)request, (void)result, (void)reserved;
    return -1;
}

static int32_t no_context(uint32_t id) {
    (void)id;
    return -1;
}

static int32_t no_stream(uint32_t id, void *info, int32_t **descriptors, int32_t endpoint, uint32_t appearance) {
    (void)id, (void)endpoint, (void)appearance;
    free(info);
    for (int i = 0; i < 3; i++)
        if ((*descriptors)[i] >= 0)
            close((*descriptors)[i]);
    return -1;
}

static int32_t no_change(uint32_t id, void *info) {
    (void)id;
    free(info);
    return -1;
}

static int32_t no_removal(uint32_t id, uint32_t stream) {
    (void)id, (void)stream;
    return -1;
}

kex_t *echo_start(void) {
    const libvoice_callbacks_t callbacks = {init,      leave,     play,       NULL,          create,
                                            modify,    destroy,   no_answers, no_parameters, no_context,
                                            no_stream, no_change, no_removal, no_context};
    bus = kex_create("echo");
    if (bus == NULL)
        return NULL;
    if (!kex_declareFunctions(bus, libvoice_bus_functions(), LIBVOICE_BUS_FUNCTIONS, LIBVOICE_BUS_FUNCTION_COLUMNS) ||
        !kex_declareObject(bus, "echo", NULL) || !kex_declareTemplate(bus, "echo.EndPoint", "EndPoint")) {
        echo_end(bus);
        return NULL;
    }
    kex_onPeerClosed(bus, application_lost, NULL);
    libvoice_set_kex_handler(bus);
    libvoice_set_pluginname("echo");
    libvoice_init(callbacks);
    return bus;
}

void echo_end(kex_t *on) {
    application_lost(on, NULL, NULL);
    kex_destroy(on);
}

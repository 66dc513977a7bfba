/* SPDX-License-Identifier: MIT */
/* Two lines that answer by themselves and say back what they hear: a driver to grow from. */
#include "echo_lines.h"

#include "voice_start.h"

#include <stdlib.h>
#include <sys/socket.h>

/* [lines] */
struct echo_line {
    const char *name;
    int32_t endpoint; /* -1: not registered */
    int off_hook;
    int media; /* a connected UDP socket, or -1 */
    voice_media_t format;
    int silent;       /* a parameter: echo cancellation is on */
    char display[32]; /* a parameter: what the application calls this line */
};
static struct echo_line lines[ECHO_LINES] = {
    {.name = "ECHO1", .endpoint = -1, .media = -1},
    {.name = "ECHO2", .endpoint = -1, .media = -1},
};

static struct echo_line *line_of(int32_t endpoint) {
    for (int i = 0; i < ECHO_LINES; i++)
        if (endpoint >= 0 && lines[i].endpoint == endpoint)
            return &lines[i];
    return NULL;
}

static void report(struct echo_line *line, uint32_t event) {
    const char *wrong = voice_event_report(line->endpoint, event, 0);
    if (wrong != NULL)
        fprintf(stderr, "%s: %s: %s\n", line->name, libvoice_param_str(event), wrong);
}

static void hook(struct echo_line *line, int off_hook) {
    if (line->off_hook == off_hook)
        return;
    line->off_hook = off_hook;
    report(line, off_hook ? LIBVOICE_EVENT_al_of : LIBVOICE_EVENT_al_on);
}

static int32_t init(const char *country) {
    const voice_codec_t codecs[] = {VOICE_CODEC_PCMA, VOICE_CODEC_PCMU};
    for (int i = 0; i < ECHO_LINES; i++) {
        struct echo_line *line = &lines[i];
        const char *wrong = voice_endpoint_register(VOICE_ENDPOINT_FXS, line->name, codecs, 2, &line->endpoint, NULL);
        dprintf(1, "%s %s\n", line->name, wrong == NULL ? "registered" : wrong);
        if (wrong == NULL && line->off_hook) /* the application starts from idle lines */
            report(line, LIBVOICE_EVENT_al_of);
    }
    return 0; /* also when a line was rejected: anything else ends the process */
}

static int32_t play(libvoice_signal_t *message) {
    const voice_signal_t signal = voice_signal_head(message);
    struct echo_line *line = line_of(signal.endpoint);
    if (line == NULL)
        return -1;
    if (signal.flags & VOICE_SIGNAL_STOP)
        return 0;
    if (signal.signal == LIBVOICE_SIGNAL_al_ri) /* it rings: answer */
        hook(line, 1);
    if (signal.signal == LIBVOICE_SIGNAL_cg_bt) /* busy tone: the other one has gone */
        hook(line, 0);
    return 0;
}
/* [end] */

/* [media] */
static void close_media(struct echo_line *line) {
    if (line->media < 0)
        return;
    kex_unwatch(libvoice_get_kex_handler(), line->media); /* before closing it */
    close(line->media);
    line->media = -1;
    dprintf(1, "%s silent\n", line->name);
}

/* A packet has come: it goes back where it came from, as a stream of our own. */
static void packet_came(int fd, void *userdata) {
    struct echo_line *line = (struct echo_line *)userdata;
    uint8_t packet[1500];
    const ssize_t size = recv(fd, packet, sizeof packet, MSG_DONTWAIT);
    if (size < 12 || line->silent || !(line->format.mode & VOICE_MODE_SEND_ONLY))
        return;
    packet[1] = (uint8_t)((packet[1] & 0x80) | line->format.sent.payload_type);
    packet[8] ^= 0xFF; /* another source identifier: its own one would be a loop to the sender (RFC 3550) */
    send(fd, packet, (size_t)size, MSG_DONTWAIT);
}

/* "create" and "modify": the second may leave the socket as it is. */
static const char *take_media(struct echo_line *line, void *cnx_info, int32_t media) {
    voice_media_t format;
    const char *wrong = voice_connection_read(cnx_info, &format);
    if (wrong == NULL && format.sent.codec != format.received.codec)
        wrong = "an echo has one codec in both directions";
    if (wrong == NULL && media < 0 && line->media < 0)
        wrong = "there is no media socket";
    if (wrong != NULL)
        return wrong;
    line->format = format;
    if (media < 0)
        return NULL;
    close_media(line);
    if (!kex_watch(libvoice_get_kex_handler(), media, line, packet_came))
        return "the media socket cannot be watched";
    line->media = media; /* from here on it is the line's */
    return NULL;
}

static int32_t set_up_media(int32_t endpoint, uint32_t appearance, void *cnx_info, int32_t **descriptors) {
    struct echo_line *line = line_of(endpoint);
    const char *wrong = appearance != 0 ? "one call at a time" : "unknown endpoint";
    if (line != NULL && appearance == 0)
        wrong = take_media(line, cnx_info, (*descriptors)[VOICE_DESCRIPTOR_MEDIA]);
    /* The descriptors are ours, also when we reject: no control, no fax here. */
    voice_descriptors_close(descriptors, wrong == NULL ? VOICE_DESCRIPTOR_CONTROL : 0, LIBVOICE_DESCRIPTORS);
    if (wrong != NULL) {
        voice_event_report_cause(endpoint, appearance, VOICE_CAUSE_UNSUPPORTED, wrong);
        return -1;
    }
    dprintf(1, "%s %s\n", line->name, line->format.mode == VOICE_MODE_INACTIVE ? "on hold" : "echoes");
    return 0;
}

static int32_t end_media(int32_t endpoint, uint32_t appearance) {
    struct echo_line *line = line_of(endpoint);
    if (line == NULL || appearance != 0 || line->media < 0)
        return -1;
    close_media(line);
    return 0;
}

void echo_lines_lost(void) {
    for (int i = 0; i < ECHO_LINES; i++) {
        close_media(&lines[i]);
        lines[i].endpoint = -1;
        lines[i].off_hook = 0; /* they answer calls, and there are none any more */
    }
}
/* [end] */

/* [parameters] */
static int32_t get(libvoice_param_set_t *request, libvoice_param_set_t **result, int32_t reserved) {
    const struct echo_line *line = line_of(voice_set_endpoint(request));
    voice_params_t asked = voice_set_params(request);
    voice_item_t item;
    voice_set_message_t answer;
    if (line == NULL)
        return -1;
    voice_set_begin(&answer, (libvoice_param_block_t *)malloc(sizeof *answer.block), line->endpoint);
    while (voice_params_next(&asked, &item)) {
        if (item.id == LIBVOICE_PARAM_tdmc_ec)
            voice_set_add_bool(&answer, item.id, line->silent);
        if (item.id == LIBVOICE_PARAM_zil_ep_dispname)
            voice_set_add_text(&answer, item.id, line->display);
    }
    return voice_set_end(&answer, result) == NULL ? 0 : -1; /* the library frees the set, in both cases */
}

static int32_t set(libvoice_param_set_t *params) {
    struct echo_line *line = line_of(voice_set_endpoint(params));
    voice_params_t rest = voice_set_params(params);
    voice_item_t item;
    int taken = line != NULL;
    while (taken && voice_params_next(&rest, &item)) {
        if (item.id == LIBVOICE_PARAM_tdmc_ec)
            taken = voice_item_get_bool(&item, &line->silent);
        else if (item.id == LIBVOICE_PARAM_zil_ep_dispname)
            taken = voice_item_get_text(&item, line->display, sizeof line->display);
        else
            taken = item.id == LIBVOICE_PARAM_zil_ep_id; /* whose they are; any other one is not ours */
    }
    return taken ? 0 : -1;
}
/* [end] */

/* [table] */
libvoice_callbacks_t echo_lines_callbacks(void) {
    const libvoice_callbacks_t callbacks = {
        .voice_plugin_init = init,
        .voice_plugin_signal = play,
        .voice_plugin_create = set_up_media,
        .voice_plugin_modify = set_up_media,
        .voice_plugin_destroy = end_media,
        .voice_plugin_get = get,
        .voice_plugin_set = set,
        .voice_plugin_create_ctx = voice_reject_context, /* no conferences */
        .voice_plugin_add_stream = voice_reject_add_stream,
        .voice_plugin_modify_stream = voice_reject_modify_stream,
        .voice_plugin_remove_stream = voice_reject_remove_stream,
        .voice_plugin_destroy_ctx = voice_reject_context,
    };
    return callbacks;
}
/* [end] */

/* SPDX-License-Identifier: MIT */
/* A voice application with media: two telephones that are off hook at the same time talk to each other. */
#include "voice_start.h"

#include <arpa/inet.h>

static int32_t talking[2] = {-1, -1}; /* the two endpoints of the call */

static const char *name_of(int32_t endpoint) {
    const char *name = libvoice_get_endpoint_name(endpoint);
    return name == NULL ? "?" : name;
}

static void tell(int32_t endpoint, const char *wrong) {
    if (wrong != NULL)
        printf("%s: %s\n", name_of(endpoint), wrong);
}

/* [media] */
static struct sockaddr_in address_of(uint16_t port) {
    struct sockaddr_in address = {.sin_family = AF_INET, .sin_port = htons(port)};
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK); /* on a gateway, its own address */
    return address;
}

/* Opens the sockets of one side and hands them to its plugin. */
static const char *media_begin(int32_t endpoint, const voice_codec_t *codec, uint16_t port, uint16_t far_port) {
    const voice_media_t media = voice_media_of(codec, VOICE_MODE_SEND_RECEIVE);
    const struct sockaddr_in here = address_of(port), there = address_of(far_port);
    voice_cnx_info_t info;
    int32_t rtp = -1, rtcp = -1;
    voice_connection_begin(&info, &media);
    if (!libvoice_connectMediaSockets(&here, &there, &rtp, &rtcp)) /* RTCP: the next port up */
        return "no media sockets";
    const uint32_t result = libvoice_create_media(endpoint, 0, &info, rtp, rtcp, -1);
    close(rtp); /* the plugin has its own */
    close(rtcp);
    return result == VOICE_SERVICE_OK ? NULL : voice_service_strerror(result);
}

static const char *call_begin(int32_t one, int32_t other) {
    voice_codec_t codec;
    const char *wrong = "no common codec";
    if (!voice_endpoint_common_codec(get_endpt_entry(one), get_endpt_entry(other), &codec))
        return wrong;
    for (uint16_t port = 28000; port < 28400; port += 4) { /* others use ports too */
        wrong = media_begin(one, &codec, port, port + 2);
        if (wrong != NULL)
            continue;
        wrong = media_begin(other, &codec, port + 2, port);
        if (wrong == NULL)
            break;
        libvoice_destroy_media(one, 0);
    }
    if (wrong == NULL) {
        talking[0] = one;
        talking[1] = other;
    }
    return wrong;
}

static void call_end(void) {
    for (int i = 0; i < 2; i++) {
        if (is_valid_endpoint(talking[i]))
            libvoice_destroy_media(talking[i], 0);
        talking[i] = -1;
    }
}
/* [end] */

static int32_t waiting = -1; /* an endpoint with a dial tone */

static void off_hook(int32_t endpoint) {
    const char *wrong;
    if (endpoint == waiting || endpoint == talking[0] || endpoint == talking[1])
        return; /* reported again */
    if (waiting == -1 && talking[0] == -1) {
        waiting = endpoint;
        tell(endpoint, voice_signal_start(endpoint, LIBVOICE_SIGNAL_cg_dt, 0));
        return;
    }
    wrong = talking[0] != -1 ? "the others are talking" : call_begin(waiting, endpoint);
    tell(endpoint, wrong);
    if (wrong != NULL) {
        tell(endpoint, voice_signal_start(endpoint, LIBVOICE_SIGNAL_cg_bt, 0));
        return;
    }
    tell(waiting, voice_signal_stop(waiting, LIBVOICE_SIGNAL_cg_dt, 0));
    printf("%s and %s talk\n", name_of(waiting), name_of(endpoint));
    waiting = -1;
}

/* Ends the call if the endpoint is in it: the other one hears that. */
static void leave(int32_t endpoint) {
    const int32_t other = endpoint == talking[0] ? talking[1] : talking[0];
    if (endpoint != talking[0] && endpoint != talking[1])
        return;
    call_end();
    if (is_valid_endpoint(other))
        tell(other, voice_signal_start(other, LIBVOICE_SIGNAL_cg_bt, 0));
}

static void on_hook(int32_t endpoint) {
    if (endpoint == waiting)
        waiting = -1;
    leave(endpoint);
}

/* [events] */
static int32_t event(libvoice_event_t *message) {
    const voice_event_t event = voice_event_head(message);
    const voice_params_t params = voice_event_params(message);
    uint32_t packets = 0;
    char why[80] = "media failed";
    if (!is_valid_endpoint(event.endpoint))
        return -1;
    switch (event.event) {
    case LIBVOICE_EVENT_al_of:
        off_hook(event.endpoint);
        break;
    case LIBVOICE_EVENT_al_on:
        on_hook(event.endpoint);
        break;
    case LIBVOICE_EVENT_zil_call_stats: /* after each "destroy" */
        voice_params_get_u32(params, LIBVOICE_PARAM_zil_call_stats_rxpkts, &packets);
        printf("%s has received %s\n", name_of(event.endpoint), packets > 0 ? "speech" : "nothing");
        break;
    case LIBVOICE_EVENT_g_cause: /* the plugin rejects media: its only answer to "create" */
        voice_params_get_text(params, LIBVOICE_PARAM_g_cause_failurecause, why, sizeof why);
        tell(event.endpoint, why);
        leave(event.endpoint);
        break;
    }
    return 0;
}
/* [end] */

/* [parameters] */
static int32_t register_endpoint(libvoice_endpoint_t *entry) {
    entry->endpoint = (int32_t)(entry - endpt_table);
    /* Sent from here, these wait in the plugin until it has the number. */
    tell(entry->endpoint, voice_endpoint_set_i32(entry->endpoint, LIBVOICE_PARAM_tdmc_gain, -3));
    libvoice_get_params(entry->endpoint, LIBVOICE_PARAM_tdmc_gain, (uint32_t)entry->endpoint);
    return 0;
}

static void get_done(request_t *request) {
    voice_params_t params;
    uint32_t endpoint = 0; /* the word that libvoice_get_params() was given */
    int32_t gain;
    if (voice_get_answer(request, &params, &endpoint) && voice_params_get_i32(params, LIBVOICE_PARAM_tdmc_gain, &gain))
        printf("%s has the gain %d\n", name_of((int32_t)endpoint), gain);
    free(request_data(request)); /* both are ours */
    request_destroy(request);
}
/* [end] */

/* [names] */
/* Whether the plugin that asks may not have its name: another connection has it, or the tables would cut it. */
static int name_is_taken(kex_t *bus) {
    char name[LIBVOICE_PLUGIN_NAME_BYTES] = "";
    kex_call_t call;
    kex_text_t text;
    if (!kex_currentCall(bus, &call) || !kex_currentText(bus, "plugin_name", &text) || text.length >= sizeof name)
        return 1;
    memcpy(name, text.bytes, text.length);
    peer_t *holder = libvoice_plugin_get_peer_by_name(name);
    return holder != NULL && holder != call.peer;
}

static int32_t get_country(char *country, uint32_t size) {
    return name_is_taken(libvoice_get_kex_handler()) || snprintf(country, size, "DE") < 0 ? -1 : 0;
}
/* [end] */

static void endpoint_deleted(libvoice_endpoint_t *entry) {
    on_hook(entry->endpoint);
}

int main(void) {
    const libvoice_app_callbacks_t callbacks = {
        .voice_app_get_country = get_country,
        .voice_app_event = event,
        .voice_app_register_endpoint = register_endpoint,
        .voice_app_endpoint_deleted = endpoint_deleted,
        .voice_app_get_done = get_done,
    };
    setvbuf(stdout, NULL, _IOLBF, 0);
    kex_t *bus = kex_create("intercom");
    const char *wrong = voice_application_start(bus, &callbacks);
    if (wrong != NULL)
        fprintf(stderr, "intercom: %s\n", wrong);
    const int failed = wrong != NULL || kex_run(bus) != 0;
    kex_destroy(bus);
    return failed;
}

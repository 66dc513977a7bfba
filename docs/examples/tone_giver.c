/* SPDX-License-Identifier: MIT */
/* A small voice application: a telephone that goes off hook hears a dial tone until it goes on hook. */
#include "kex_host.h"
#include "voice_records.h"

#include <stdio.h>
#include <string.h>

static int32_t get_country(char *country, uint32_t size) {
    return snprintf(country, size, "DE") < 0 ? -1 : 0;
}

/* Every endpoint is welcome; its number is its place in the table. */
static int32_t register_endpoint(libvoice_endpoint_t *entry) {
    entry->endpoint = (int32_t)(entry - endpt_table);
    printf("%s is endpoint %d\n", entry->endpoint_path, entry->endpoint);
    return 0;
}

static void endpoint_deleted(libvoice_endpoint_t *entry) {
    printf("%s is gone\n", entry->endpoint_path);
}

static void dial_tone(int32_t endpoint, uint32_t flags) {
    voice_signal_t signal = {
        .endpoint = endpoint, .signal = LIBVOICE_SIGNAL_cg_dt, .message_id = get_new_msg_id(), .flags = flags};
    libvoice_send_signal((libvoice_signal_t *)&signal);
}

static int32_t event(libvoice_event_t *message) {
    voice_event_t event;
    memcpy(&event, message, sizeof event);
    if (!is_valid_endpoint(event.endpoint)) /* the sender is not checked against the number */
        return -1;
    printf("%s: %s\n", libvoice_get_endpoint_name(event.endpoint), libvoice_param_str(event.event));
    if (event.event == LIBVOICE_EVENT_al_of)
        dial_tone(event.endpoint, 0);
    if (event.event == LIBVOICE_EVENT_al_on)
        dial_tone(event.endpoint, VOICE_SIGNAL_STOP);
    return 0;
}

/* A plugin that crashed takes no leave: its endpoints go when its connection closes. */
static void peer_closed(kex_t *bus, peer_t *peer, void *userdata) {
    if (libvoice_plugin_get_index_by_peer(peer) != -1)
        libvoice_plugin_deregister_by_peer(peer);
}

int main(void) {
    const libvoice_app_callbacks_t callbacks = {.voice_app_get_country = get_country,
                                                .voice_app_event = event,
                                                .voice_app_register_endpoint = register_endpoint,
                                                .voice_app_endpoint_deleted = endpoint_deleted};
    setvbuf(stdout, NULL, _IOLBF, 0);
    kex_t *bus = kex_create("tone_giver");
    if (!kex_declareFunctions(bus, libvoice_bus_functions(), LIBVOICE_BUS_FUNCTIONS, LIBVOICE_BUS_FUNCTION_COLUMNS))
        return 1;
    kex_declareObject(bus, LIBVOICE_APPLICATION_PATH, LIBVOICE_APPLICATION_CLASS);
    kex_onPeerClosed(bus, peer_closed, NULL);
    libvoice_set_kex_handler(bus);
    libvoice_app_init(callbacks);
    libvoice_plugin_init_table();
    if (!libvoice_app_connect(kex_connection(bus), libvoice_get_ipc_socket()))
        return 1;
    return kex_run(bus);
}

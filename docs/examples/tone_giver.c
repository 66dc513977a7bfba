/* SPDX-License-Identifier: MIT */
/* A small voice application: a telephone that goes off hook hears a dial tone until it goes on hook. */
#include "voice_start.h"

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

static int32_t event(libvoice_event_t *message) {
    const voice_event_t event = voice_event_head(message);
    const char *wrong = NULL;
    if (!is_valid_endpoint(event.endpoint)) /* the sender is not checked against the number */
        return -1;
    printf("%s: %s\n", libvoice_get_endpoint_name(event.endpoint), libvoice_param_str(event.event));
    if (event.event == LIBVOICE_EVENT_al_of)
        wrong = voice_signal_start(event.endpoint, LIBVOICE_SIGNAL_cg_dt, event.line);
    if (event.event == LIBVOICE_EVENT_al_on)
        wrong = voice_signal_stop(event.endpoint, LIBVOICE_SIGNAL_cg_dt, event.line);
    if (wrong != NULL)
        fprintf(stderr, "dial tone: %s\n", wrong);
    return 0;
}

int main(void) {
    const libvoice_app_callbacks_t callbacks = {
        .voice_app_get_country = get_country,
        .voice_app_event = event,
        .voice_app_register_endpoint = register_endpoint,
        .voice_app_endpoint_deleted = endpoint_deleted,
    };
    setvbuf(stdout, NULL, _IOLBF, 0);
    kex_t *bus = kex_create("tone_giver");
    const char *wrong = voice_application_start(bus, &callbacks);
    if (wrong != NULL)
        fprintf(stderr, "tone_giver: %s\n", wrong);
    const int failed = wrong != NULL || kex_run(bus) != 0;
    kex_destroy(bus);
    return failed;
}

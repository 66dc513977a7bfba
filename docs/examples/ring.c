/* SPDX-License-Identifier: MIT */
/* Parameters of a signal, written by the application and read by the plugin; here both in one process. */
#include "voice_records.h"

#include <stdio.h>
#include <string.h>

static int32_t frequency_of(libvoice_signal_t *message) {
    int32_t frequency = 0;
    /* [reading] */
    uint8_t *cursor = libvoice_signal_params(message);
    uint32_t remaining = message->length;
    uint32_t length = 0; /* preset: an item that is cut off counts as success and leaves these alone */
    uint8_t *value = NULL;
    if (libvoice_get_param(LIBVOICE_PARAM_al_ri_freq, &length, &value, &cursor, &remaining) == LIBVOICE_OK &&
        length == sizeof frequency)
        memcpy(&frequency, value, sizeof frequency);
    /* [end] */
    return frequency;
}

int main(void) {
    const int32_t endpoint = 0;
    /* [writing] */
    struct {
        voice_signal_t head;
        uint32_t params[16];
    } ring = {.head = {.endpoint = endpoint, .signal = LIBVOICE_SIGNAL_al_ri}};
    const int32_t frequency = 25;
    uint8_t *cursor = (uint8_t *)ring.params;
    uint32_t remaining = sizeof ring.params;
    libvoice_add_param(LIBVOICE_PARAM_al_ri_freq, sizeof frequency, &frequency, &cursor, &remaining);
    ring.head.length = (uint32_t)sizeof ring.params - remaining;
    libvoice_send_signal((libvoice_signal_t *)&ring.head);
    /* [end] */
    return frequency_of((libvoice_signal_t *)&ring.head) == frequency ? 0 : 1;
}

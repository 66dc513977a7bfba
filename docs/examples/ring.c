/* SPDX-License-Identifier: MIT */
/* Parameters of a signal, written by the application and read by the plugin; here both in one process. */
#include "voice_records.h"

static int32_t frequency_of(libvoice_signal_t *message) {
    /* [reading] */
    uint32_t cadence[8], count;
    int32_t frequency = 25; /* Hz, unless the application says another one */
    voice_params_get_i32(voice_signal_params(message), LIBVOICE_PARAM_al_ri_freq, &frequency);
    if (!voice_params_get_cadence(voice_signal_params(message), cadence, 8, &count))
        return -1;
    /* [end] */
    return count == 2 && cadence[0] == 1000 && cadence[1] == 4000 ? frequency : -1;
}

int main(void) {
    const int32_t endpoint = 0;
    libvoice_set_endpoint("TEL1", endpoint, NULL);
    /* [writing] */
    const uint32_t cadence[] = {1000, 4000}; /* ms on and off */
    voice_signal_message_t ring;
    voice_signal_begin(&ring, endpoint, LIBVOICE_SIGNAL_al_ri, 0);
    voice_signal_add_cadence(&ring, cadence, 2);
    voice_signal_add_i32(&ring, LIBVOICE_PARAM_al_ri_freq, 50);
    const char *wrong = voice_signal_send(&ring); /* tells, too, what one of the additions would not take */
    /* [end] */
    return wrong != NULL || frequency_of(&ring.record) != 50;
}

/* SPDX-License-Identifier: MIT */
/* A whole voice plugin: one telephone whose handset lies beside it. It prints what is to be heard there. */
#include "voice_start.h"

static int32_t init(const char *country) {
    const voice_codec_t pcma = VOICE_CODEC_PCMA;
    int32_t endpoint;
    const char *wrong = voice_endpoint_register(VOICE_ENDPOINT_FXS, "TEL1", &pcma, 1, &endpoint, NULL);
    if (wrong == NULL)
        wrong = voice_event_report(endpoint, LIBVOICE_EVENT_al_of, 0);
    if (wrong != NULL)
        fprintf(stderr, "TEL1: %s\n", wrong);
    return 0; /* anything else ends the process */
}
static int32_t leave(uint32_t reason) {
    kex_stop(libvoice_get_kex_handler());
    return 0;
}
static int32_t play(libvoice_signal_t *message) {
    const voice_signal_t signal = voice_signal_head(message);
    dprintf(1, "%s %s\n", signal.flags & VOICE_SIGNAL_STOP ? "ends" : "begins", libvoice_param_str(signal.signal));
    return 0;
}
int main(void) {
    const libvoice_callbacks_t callbacks = {
        .voice_plugin_init = init,
        .voice_plugin_exit = leave,
        .voice_plugin_signal = play,
        .voice_plugin_create = voice_reject_media, /* no media, parameters and conferences here */
        .voice_plugin_modify = voice_reject_media,
        .voice_plugin_destroy = voice_reject_destroy,
        .voice_plugin_get = voice_reject_get,
        .voice_plugin_set = voice_reject_set,
        .voice_plugin_create_ctx = voice_reject_context,
        .voice_plugin_add_stream = voice_reject_add_stream,
        .voice_plugin_modify_stream = voice_reject_modify_stream,
        .voice_plugin_remove_stream = voice_reject_remove_stream,
        .voice_plugin_destroy_ctx = voice_reject_context,
    };
    kex_t *bus = kex_create("tel");
    const char *wrong = voice_plugin_start(bus, "tel", &callbacks);
    if (wrong != NULL)
        fprintf(stderr, "tel: %s\n", wrong);
    const int failed = wrong != NULL || kex_run(bus) != 0;
    kex_destroy(bus);
    return failed;
}

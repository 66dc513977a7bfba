/* SPDX-License-Identifier: MIT */
/* A DSP plugin: it prints what the channels are told that the application makes in it. */
#include "voice_start.h"

static int32_t init(const char *country) {
    return 0; /* no endpoints: channels come when the application asks for them */
}
static int32_t leave(uint32_t reason) {
    kex_stop(libvoice_get_kex_handler());
    return 0;
}
static int32_t play(const char *channel, libvoice_signal_t *message) {
    const voice_signal_t signal = voice_signal_head(message);
    dprintf(1, "%s %s %s\n", channel, signal.flags & VOICE_SIGNAL_STOP ? "ends" : "begins",
            libvoice_param_str(signal.signal));
    return 0;
}
/* "create" and "modify". The descriptors are ours: a channel that hears and speaks keeps the first one, and watches it. */
static int32_t take_media(const char *channel, uint32_t line, void *cnx_info, int32_t **descriptors) {
    voice_media_t format;
    const char *wrong = voice_connection_read(cnx_info, &format);
    voice_descriptors_close(descriptors, 0, LIBVOICE_DESCRIPTORS);
    if (wrong == NULL)
        dprintf(1, "%s has media, codec %u\n", channel, format.sent.codec);
    else
        fprintf(stderr, "%s: %s\n", channel, wrong);
    return wrong == NULL ? 0 : -1;
}
static int32_t create(const char *channel, uint32_t line, void *cnx_info, int32_t **descriptors, const char *endpoint) {
    return take_media(channel, line, cnx_info, descriptors);
}
static int32_t destroy(const char *channel, uint32_t line) {
    dprintf(1, "%s has no media\n", channel);
    return 0;
}
int main(void) {
    libvoice_callbacks_t callbacks = voice_plugin_rejections();
    const libvoice_dsp_callbacks_t dsp = {
        .dsp_plugin_signal = play,
        .dsp_plugin_create = create,
        .dsp_plugin_modify = take_media,
        .dsp_plugin_destroy = destroy,
    };
    callbacks.voice_plugin_init = init;
    callbacks.voice_plugin_exit = leave;
    kex_t *bus = kex_create("channels");
    const char *wrong = voice_dsp_plugin_start(bus, "dsp1", &callbacks, &dsp);
    if (wrong != NULL)
        fprintf(stderr, "dsp1: %s\n", wrong);
    const int failed = wrong != NULL || kex_run(bus) != 0;
    kex_destroy(bus);
    return failed;
}

/* SPDX-License-Identifier: MIT */
/* A plugin with one line, which prints nothing by stdio: what that needs is the program's own. Says so when it is idle. */
#include "voice_start.h"

#include <unistd.h>

static int32_t init(const char *country) {
    const voice_codec_t pcma = VOICE_CODEC_PCMA;
    int32_t endpoint = -1;
    (void)country;
    if (voice_endpoint_register(VOICE_ENDPOINT_FXS, "TEL1", &pcma, 1, &endpoint, NULL) != NULL)
        return -1;
    return voice_event_report(endpoint, LIBVOICE_EVENT_al_of, 0) == NULL ? 0 : -1;
}
static int32_t leave(uint32_t reason) {
    (void)reason;
    kex_stop(libvoice_get_kex_handler());
    return 0;
}
static int32_t idle(libvoice_signal_t *message) {
    (void)message;
    return write(1, "idle\n", 5) == 5 ? 0 : -1;
}
int main(void) {
    libvoice_callbacks_t callbacks = voice_plugin_rejections();
    callbacks.voice_plugin_init = init;
    callbacks.voice_plugin_exit = leave;
    callbacks.voice_plugin_signal = idle;
    kex_t *bus = kex_create("tel");
    return voice_plugin_start(bus, "tel", &callbacks) != NULL || kex_run(bus) != 0;
}

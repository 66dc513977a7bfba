/* SPDX-License-Identifier: MIT */
/* Starts a host on the bundled bus, set up as the argument says, and prints "started" or the sentence. The library is
 * linked into the program itself: the bus finds the bus functions only if the program exports them. */
#include "voice_start.h"

static int32_t init(const char *country) {
    return country == NULL;
}
static int32_t leave(uint32_t reason) {
    return reason != LIBVOICE_EXIT_DEREGISTERED;
}

static const char *start_application(kex_t *bus) {
    const libvoice_app_callbacks_t callbacks = {NULL, NULL, NULL, NULL, NULL, NULL, NULL};
    return voice_application_start(bus, &callbacks);
}

static const char *start_dsp_plugin(kex_t *bus, const libvoice_callbacks_t *callbacks) {
    const libvoice_dsp_callbacks_t dsp = {NULL, NULL, NULL, NULL};
    return voice_dsp_plugin_start(bus, "dsp1", callbacks, &dsp);
}

int main(int count, char **words) {
    const char *how = count > 1 ? words[1] : "";
    const char *name = strcmp(how, "long_name") == 0 ? "abcdefghijklmnopqrst" : "tel";
    libvoice_callbacks_t callbacks = voice_plugin_rejections();
    callbacks.voice_plugin_init = init;
    callbacks.voice_plugin_exit = leave;
    if (strcmp(how, "no_callback") == 0)
        callbacks.voice_plugin_modify_stream = NULL;
    kex_t *bus = kex_create("start_one");
    if (strcmp(how, "taken_name") == 0)
        kex_declareObject(bus, "tel", "Telescope");

    const char *wrong;
    if (strcmp(how, "application") == 0)
        wrong = start_application(bus);
    else if (strcmp(how, "dsp_plugin") == 0)
        wrong = start_dsp_plugin(bus, &callbacks);
    else
        wrong = voice_plugin_start(strcmp(how, "no_bus") == 0 ? NULL : bus, name, &callbacks);
    puts(wrong == NULL ? "started" : wrong);
    kex_destroy(bus);
    return 0;
}

/* SPDX-License-Identifier: MIT */
/* A plugin with the library linked into the program itself: the bus finds the bus functions only if the program exports
 * them. Prints "started", or what voice_plugin_start() says. */
#include "voice_start.h"

static int32_t init(const char *country) {
    return country == NULL;
}
static int32_t leave(uint32_t reason) {
    return reason != LIBVOICE_EXIT_DEREGISTERED;
}

int main(void) {
    libvoice_callbacks_t callbacks = voice_plugin_refusals();
    callbacks.voice_plugin_init = init;
    callbacks.voice_plugin_exit = leave;
    kex_t *bus = kex_create("linked_in");
    const char *wrong = voice_plugin_start(bus, "tel", &callbacks);
    puts(wrong == NULL ? "started" : wrong);
    kex_destroy(bus);
    return 0;
}

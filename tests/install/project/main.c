/* SPDX-License-Identifier: MIT */
/* The door station on the bundled bus. SIGTERM ends it. */
#define _POSIX_C_SOURCE 200809L /* sigprocmask() */
#include "door.h"
#include "voice_start.h"

#include <signal.h>
#include <sys/signalfd.h>

static kex_t *bus;

/* SIGTERM came. The answer to the leave is "exit": only then is the application done with us. */
static void take_leave(int descriptor, void *userdata) {
    (void)userdata;
    kex_unwatch(bus, descriptor);
    if (!voice_plugin_leave())
        kex_stop(bus);
}

static int32_t leave(uint32_t reason) {
    (void)reason;
    kex_stop(bus);
    return 0;
}

int main(void) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, NULL);
    bus = kex_create("door");
    libvoice_callbacks_t callbacks = door_callbacks();
    callbacks.voice_plugin_exit = leave;
    const char *wrong = voice_plugin_start(bus, "door", &callbacks);
    if (wrong != NULL)
        fprintf(stderr, "door: %s\n", wrong);
    kex_watch(bus, signalfd(-1, &signals, SFD_CLOEXEC), NULL, take_leave);
    const int failed = wrong != NULL || kex_run(bus) != 0;
    kex_destroy(bus);
    return failed;
}

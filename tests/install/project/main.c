/* SPDX-License-Identifier: MIT */
/* The door station on the bundled bus. SIGTERM ends it, whatever the application does. */
#define _POSIX_C_SOURCE 200809L /* sigaction() */
#include "door.h"
#include "voice_start.h"

#include <signal.h>
#include <sys/eventfd.h>

static kex_t *bus;
static int wish; /* an eventfd: a signal handler writes it, the loop reads it */

/* The answer to the leave is "exit": only then is the application done with us. */
static void take_leave(int descriptor, void *userdata) {
    (void)userdata;
    kex_unwatch(bus, descriptor);
    if (!voice_plugin_leave())
        kex_stop(bus);
}

/* The loop takes leave. The alarm is for one that does not come to it, or gets no answer. */
static void signal_came(int number) {
    const uint64_t one = 1;
    if (number == SIGTERM && write(wish, &one, sizeof one) > 0)
        alarm(1);
    else
        kex_stop(bus);
}

static int32_t leave(uint32_t reason) {
    (void)reason;
    kex_stop(bus);
    return 0;
}

int main(void) {
    const struct sigaction action = {.sa_handler = signal_came, .sa_flags = SA_RESTART};
    bus = kex_create("door");
    libvoice_callbacks_t callbacks = door_callbacks();
    callbacks.voice_plugin_exit = leave;
    const char *wrong = voice_plugin_start(bus, "door", &callbacks);
    if (wrong != NULL)
        fprintf(stderr, "door: %s\n", wrong);
    kex_watch(bus, wish = eventfd(0, EFD_CLOEXEC), NULL, take_leave);
    sigaction(SIGTERM, &action, NULL);
    sigaction(SIGALRM, &action, NULL);
    const int failed = wrong != NULL || kex_run(bus) != 0;
    signal(SIGALRM, SIG_IGN); /* it would stop a bus that is no more */
    kex_destroy(bus);
    return failed;
}

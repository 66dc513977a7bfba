/* SPDX-License-Identifier: MIT */
/* The echo lines as a process. SIGTERM and SIGINT end it, whatever the application does. */
#include "echo_lines.h"
#include "voice_start.h"

#include <signal.h>
#include <sys/eventfd.h>

static kex_t *bus;
static int wish; /* an eventfd: a signal handler writes it, the loop reads it */

static int32_t leave(uint32_t reason) {
    kex_stop(bus);
    return 0;
}
/* Leave is taken of the application without waiting: its answer is leave(). */
static void end(int fd, void *userdata) {
    kex_unwatch(bus, fd);
    if (!voice_plugin_leave())
        kex_stop(bus);
}
/* The loop takes leave. The alarm is for one that does not come to it: a registration waits without a limit. */
static void signal_came(int number) {
    const uint64_t one = 1;
    if (number != SIGALRM && write(wish, &one, sizeof one) > 0)
        alarm(1);
    else
        kex_stop(bus);
}
static void peer_closed(kex_t *of, peer_t *peer, void *userdata) {
    echo_lines_lost(); /* the library connects again by itself */
}

int main(void) {
    const int signals[] = {SIGTERM, SIGINT, SIGALRM};
    const struct sigaction action = {.sa_handler = signal_came, .sa_flags = SA_RESTART};
    bus = kex_create("echo_plugin");
    libvoice_callbacks_t callbacks = echo_lines_callbacks();
    callbacks.voice_plugin_exit = leave;
    const char *wrong = voice_plugin_start(bus, "echo3", &callbacks); /* the figure makes its numbers 301 and 302 */
    if (wrong != NULL)
        fprintf(stderr, "echo3: %s\n", wrong);
    kex_onPeerClosed(bus, peer_closed, NULL);
    kex_watch(bus, wish = eventfd(0, EFD_CLOEXEC), NULL, end);
    for (int i = 0; i < 3; i++)
        sigaction(signals[i], &action, NULL);
    const int failed = wrong != NULL || kex_run(bus) != 0;
    signal(SIGALRM, SIG_IGN); /* it would stop a bus that is no more */
    kex_destroy(bus);
    return failed;
}

/* SPDX-License-Identifier: MIT */
/* The echo lines as a process. SIGTERM and SIGINT end it. */
#include "echo_lines.h"
#include "voice_start.h"

#include <signal.h>
#include <sys/signalfd.h>

static kex_t *bus;

static int32_t leave(uint32_t reason) {
    kex_stop(bus);
    return 0;
}
static void time_is_up(kex_timer_t *timer) {
    kex_stop(bus);
}
/* A signal came. Leave is taken of the application without waiting: its answer is leave(). */
static void end(int fd, void *userdata) {
    kex_timer_t *patience = kex_timer_create();
    kex_unwatch(bus, fd);
    kex_timer_setHandler(patience, time_is_up);
    kex_timer_start(patience, voice_plugin_leave() ? 1000 : 0);
}
static void peer_closed(kex_t *of, peer_t *peer, void *userdata) {
    echo_lines_lost(); /* the library connects again by itself */
}

int main(void) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, NULL);
    bus = kex_create("echo_plugin");
    libvoice_callbacks_t callbacks = echo_lines_callbacks();
    callbacks.voice_plugin_exit = leave;
    const char *wrong = voice_plugin_start(bus, "echo3", &callbacks); /* the figure makes its numbers 301 and 302 */
    if (wrong != NULL)
        fprintf(stderr, "echo3: %s\n", wrong);
    kex_onPeerClosed(bus, peer_closed, NULL);
    kex_watch(bus, signalfd(-1, &signals, SFD_CLOEXEC), NULL, end);
    const int failed = wrong != NULL || kex_run(bus) != 0;
    kex_destroy(bus);
    return failed;
}

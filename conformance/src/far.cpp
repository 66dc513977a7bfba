// SPDX-License-Identifier: MIT
// Implements far.h.
#include "far.h"
#include "check.h"
#include "page.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

namespace conformance {

int line = -1;

namespace {

constexpr char kListening = '!';
constexpr char kSocket[] = "bus";

// What the other process says: 0 when it has hung up, -1 when it says nothing for that long.
int word_read(int milliseconds) {
    pollfd ready = {line, POLLIN, 0};
    if (poll(&ready, 1, milliseconds) <= 0)
        return -1;
    char word = 0;
    const ssize_t size = read(line, &word, 1);
    return size == 1 ? word : 0;
}

} // namespace

void far_listen() {
    host_begin();
    char path[300];
    expect(lib.connection_listenOnIPC(lib.kex_connection(bus), folder_path(path, kSocket)) != nullptr,
           "connection_listenOnIPC answers null for a new path");
    line_say(kListening);
}

void far_serve_until(char word) {
    step("serving");
    for (;;) {
        const int said = word_read(0);
        if (said == 0 || said == word)
            return;
        turn();
    }
}

void far_serve() {
    far_serve_until('\0');
}

void far_plain() {
    far_listen();
    far_serve();
    host_end();
}

peer_t *far_connect_again() {
    char path[300];
    char uri[400];
    snprintf(uri, sizeof uri, "kex://ipc:[%s]", folder_path(path, kSocket));
    peer_t *peer = lib.kex_client_connect(bus, uri);
    expect(peer != nullptr, "kex_client_connect answers null although a process listens there");
    return peer;
}

peer_t *far_connect() {
    host_begin();
    line_hear(kListening);
    return far_connect_again();
}

void line_say(char word) {
    // The other one may have failed already, and says why.
    if (send(line, &word, 1, MSG_NOSIGNAL) != 1)
        fail("the other process has gone");
}

void line_hear(char word) {
    const int said = word_read(kPatience);
    expect(said == word, "the other process %s", said == 0 ? "has gone" : "does not get ready");
}

void line_hear_in_turns(char word) {
    int said = -1;
    turn_until("what the other process should say", [&said] {
        said = word_read(0);
        return said >= 0;
    });
    expect(said == word, "the other process %s", said == 0 ? "has gone" : "says something else");
}

void process_vanish() {
    page->vanishes[process] = true;
    kill(getpid(), SIGKILL);
    _exit(1);
}

} // namespace conformance

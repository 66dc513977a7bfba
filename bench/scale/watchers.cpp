// SPDX-License-Identifier: MIT
// Processes that watch all that passes through the application of a measured world.
#include <csignal>
#include <cstdio>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>

#include "../support/measure.h"
#include "../support/program.h"
#include "kex_tap.h"
#include "world.h"

void tap_serve(const std::string &socket, int words) {
    kex_tap_t *tap = kex_tap_open(("kex://ipc:[" + socket + "]").c_str(), nullptr, 0);
    if (!tap)
        die("kex_tap_open");
    kex_tap_record_t record;
    bool is_watching = false;
    for (;;) {
        pollfd ready = {kex_tap_descriptor(tap), POLLIN, 0};
        poll(&ready, 1, -1);
        int more;
        while ((more = kex_tap_next(tap, &record)) == 1) {
            keep(record);
            if (!is_watching && record.kind == KEX_TAP_WATCHING && write(words, "t", 1) == 1)
                is_watching = true;
        }
        if (more < 0)
            _exit(0);
    }
}

namespace {

std::string program_beside(const char *name) {
    char own[4096];
    const ssize_t length = readlink("/proc/self/exe", own, sizeof own);
    if (length <= 0 || length == sizeof own)
        die("readlink");
    const std::string path(own, static_cast<size_t>(length));
    return path.substr(0, path.rfind('/') + 1) + name;
}

} // namespace

bool capture_can_serve() {
    return access(program_beside("voicectl").c_str(), X_OK) == 0;
}

void capture_serve(const std::string &socket, int words) {
    int said[2];
    const std::string program = program_beside("voicectl"), file = socket + ".pcapng";
    if (pipe(said) != 0)
        die("pipe");
    const pid_t capture = fork();
    if (capture == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(said[1], STDERR_FILENO);
        execl(program.c_str(), "voicectl", "capture", "--socket", socket.c_str(), "--output", file.c_str(), nullptr);
        die(program.c_str());
    }
    close(said[1]);
    // It says so when it keeps what passes, and nothing more until it ends.
    char byte;
    if (read(said[0], &byte, 1) != 1 || write(words, "c", 1) != 1)
        die("voicectl capture");
    while (read(said[0], &byte, 1) == 1) {
    }
    die("voicectl capture has ended");
}

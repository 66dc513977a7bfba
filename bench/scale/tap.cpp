// SPDX-License-Identifier: MIT
// A process that watches all that passes through the application of a measured world.
#include <poll.h>
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

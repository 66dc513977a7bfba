// SPDX-License-Identifier: MIT
// The fake bus as a library of its own, by the clock of the machine: its own one stands still until a test moves it.
#include "voice_fake/bus.h"

#include "kex_host.h"

#include <time.h>

namespace {

uint64_t now(void *) {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1000000000 + static_cast<uint64_t>(time.tv_nsec);
}

__attribute__((constructor)) void clock_set() {
    kex_setClock(fake::bus().handle(), now, nullptr);
}

} // namespace

// SPDX-License-Identifier: MIT
// Spare descriptors: a full table makes the kernel drop descriptors of a packet without a word, and leaves connections
// waiting that nobody can refuse. The spare ones are given up for the moment in which something arrives.
#include "spare.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace bus {

bool spare_fill(kex_t *bus) {
    while (bus->spare_count < kSpareDescriptors) {
        int fd = fcntl(bus->stop_fd, F_DUPFD_CLOEXEC, 0);
        if (fd < 0)
            return false;
        bus->spare[bus->spare_count++] = fd;
    }
    return true;
}

void spare_release(kex_t *bus) {
    while (bus->spare_count > 0)
        close(bus->spare[--bus->spare_count]);
}

bool descriptors_are_short(kex_t *bus) {
    // The kernel gives out the lowest free number: all below it are taken.
    int lowest = fcntl(bus->stop_fd, F_DUPFD_CLOEXEC, 0);
    if (lowest < 0)
        return true;
    close(lowest);
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return false;
    return static_cast<uint64_t>(lowest) + kMaxDescriptors >= limit.rlim_cur;
}

} // namespace bus

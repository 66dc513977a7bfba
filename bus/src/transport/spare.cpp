// SPDX-License-Identifier: MIT
// Spare descriptors: a full table makes the kernel drop descriptors of a packet without a word, and leaves connections
// waiting that nobody can refuse. The spare ones are given up for the moment in which something arrives.
#include "transport/spare.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace bus;

namespace {

// A look costs three system calls, as much as reading a packet. With plenty of room it is left out for so many reads.
constexpr uint32_t kLooksSkipped = 31;

// Descriptors that surely fit: the kernel gives out the lowest free number, so all below it are taken.
uint64_t table_room(int any) {
    int lowest = fcntl(any, F_DUPFD_CLOEXEC, 0);
    if (lowest < 0)
        return 0;
    close(lowest);
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return UINT64_MAX;
    uint64_t used = static_cast<uint64_t>(lowest);
    return limit.rlim_cur > used ? limit.rlim_cur - used : 0;
}

} // namespace

namespace bus {

bool spare_fill(kex_t *bus) {
    while (bus->spare_count < kSpareDescriptors) {
        int fd = fcntl(bus->loop.stop.fd, F_DUPFD_CLOEXEC, 0);
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

uint32_t descriptors_room(kex_t *bus) {
    if (bus->table_looks_left > 0 && bus->table_room >= kPlentyOfDescriptors) {
        bus->table_looks_left--;
        return bus->table_room;
    }
    uint64_t room = table_room(bus->loop.stop.fd);
    bus->table_room = room < UINT32_MAX ? static_cast<uint32_t>(room) : UINT32_MAX;
    bus->table_looks_left = kLooksSkipped;
    return bus->table_room;
}

void descriptors_came(kex_t *bus, uint32_t count) {
    bus->table_room -= count < bus->table_room ? count : bus->table_room;
}

} // namespace bus

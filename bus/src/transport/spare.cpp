// SPDX-License-Identifier: MIT
// Implements spare.h.
#include "transport/spare.h"
#include "base/faults.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace bus {

namespace {

// A look costs three system calls, as much as reading a packet. With plenty of room it is left out for so many reads.
constexpr uint32_t kLooksSkipped = 31;

uint64_t table_size() {
    rlimit limit;
    return getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : RLIM_INFINITY;
}

// What the host needs for its own media and files while calls of peers hold descriptors.
uint64_t host_reserve(uint64_t size) {
    return size / kHostShare < kMaxHostReserve ? size / kHostShare : kMaxHostReserve;
}

// Descriptors that surely fit: the kernel gives out the lowest free number, so all below it are taken.
uint64_t table_room(int any) {
    int lowest = fault_is_due(Fault::dup) ? -1 : fcntl(any, F_DUPFD_CLOEXEC, 0);
    if (lowest < 0)
        return 0;
    close(lowest);
    const uint64_t size = table_size();
    const uint64_t kept = static_cast<uint64_t>(lowest) + host_reserve(size);
    return size > kept ? size - kept : 0;
}

} // namespace

bool spare_fill(SpareDescriptors &spare) {
    while (spare.count < kSpareDescriptors) {
        int fd = fault_is_due(Fault::dup) ? -1 : fcntl(spare.original, F_DUPFD_CLOEXEC, 0);
        if (fd < 0)
            return false;
        spare.fds[spare.count++] = fd;
    }
    return true;
}

void spare_release(SpareDescriptors &spare) {
    while (spare.count > 0)
        close(spare.fds[--spare.count]);
}

uint32_t spare_room(SpareDescriptors &spare) {
    if (spare.looks_to_skip > 0 && spare.room >= kPlentyOfDescriptors) {
        spare.looks_to_skip--;
        return spare.room;
    }
    uint64_t room = table_room(spare.original);
    spare.room = room < UINT32_MAX ? static_cast<uint32_t>(room) : UINT32_MAX;
    spare.looks_to_skip = kLooksSkipped;
    return spare.room;
}

void spare_received(SpareDescriptors &spare, uint32_t count) {
    spare.room -= count < spare.room ? count : spare.room;
}

bool spare_is_hosts(int fd) {
    const uint64_t size = table_size();
    return static_cast<uint64_t>(fd) + host_reserve(size) >= size;
}

} // namespace bus

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

// The kernel gives out the lowest free number: all below it are taken. So may be some above it, where peers' descriptors
// lie that are not closed yet; those of the host's own there are few beside what is kept for it.
uint64_t table_room(int any, uint32_t known) {
    int lowest = fault_is_due(Fault::dup) ? -1 : fcntl(any, F_DUPFD_CLOEXEC, 0);
    if (lowest < 0)
        return 0;
    close(lowest);
    const uint64_t size = table_size();
    const uint64_t taken = static_cast<uint32_t>(lowest) > known ? static_cast<uint32_t>(lowest) : known;
    const uint64_t kept = taken + host_reserve(size);
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

void spare_look(SpareDescriptors &spare, uint32_t known) {
    const uint64_t room = table_room(spare.original, known + spare.count);
    spare.room = room < UINT32_MAX ? static_cast<uint32_t>(room) : UINT32_MAX;
    spare.looks_to_skip = kLooksSkipped;
}

void spare_received(SpareDescriptors &spare, uint32_t count) {
    spare.room -= count < spare.room ? count : spare.room;
}

bool spare_is_hosts(int fd) {
    const uint64_t size = table_size();
    return static_cast<uint64_t>(fd) + host_reserve(size) >= size;
}

} // namespace bus

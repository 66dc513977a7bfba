// SPDX-License-Identifier: MIT
// Spare descriptors: a full table makes the kernel drop descriptors of a packet without a word, and leaves connections
// waiting that nobody can refuse. The spare ones are given up for the moment in which something arrives.
#ifndef KEX_SPARE_H
#define KEX_SPARE_H

#include "base/limits.h"

namespace bus {

struct SpareDescriptors {
    int original; // any open descriptor, of which the spare ones are duplicates
    int fds[kSpareDescriptors];
    uint32_t count;
    uint32_t room;          // free places in the process's table at the last look, less what has come since
    uint32_t looks_to_skip; // reads until it is looked at again
};

// Takes what is missing. False: the process's table is full.
bool spare_fill(SpareDescriptors &spare);
void spare_release(SpareDescriptors &spare);
constexpr uint32_t kPlentyOfDescriptors = 2 * kKernelDescriptors;
// The table is looked at now and then only, as long as there is plenty of room.
inline bool spare_look_is_due(SpareDescriptors &spare) {
    const bool is_due = spare.looks_to_skip == 0 || spare.room < kPlentyOfDescriptors;
    spare.looks_to_skip -= is_due ? 0 : 1;
    return is_due;
}
// Looks for how many descriptors the process's table has room without the spare ones and those that are kept for the
// host. So many are known to be in it, whatever numbers they have.
void spare_look(SpareDescriptors &spare, uint32_t known);
// Whether this one, which has just been opened, took a place that is kept for the host.
bool spare_is_hosts(int fd);
// So many have come since.
void spare_received(SpareDescriptors &spare, uint32_t count);

} // namespace bus

#endif

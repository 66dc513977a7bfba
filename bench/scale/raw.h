// SPDX-License-Identifier: MIT
// As many processes as a voice system has, on raw sockets: one for the application, one for each plugin.
#ifndef BENCH_SCALE_RAW_H
#define BENCH_SCALE_RAW_H

#include <cstdint>
#include <vector>

#include <sys/types.h>

class RawWorld {
public:
    RawWorld(int plugins, bool on_two_cpus);
    RawWorld(const RawWorld &) = delete;
    RawWorld &operator=(const RawWorld &) = delete;
    ~RawWorld();

    // So many packets, one after the other to each plugin in turn; each is answered by one.
    void exchange(uint32_t count);

private:
    int orders_;
    int words_;
    std::vector<pid_t> processes_;
};

#endif

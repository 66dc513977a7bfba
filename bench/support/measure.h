// SPDX-License-Identifier: MIT
// What the benchmarks share: a clock, running on one CPU, and keeping results.
#ifndef BENCH_MEASURE_H
#define BENCH_MEASURE_H

#include <sched.h>
#include <time.h>

inline double now_ns() {
    timespec t = {};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

// From here on the process runs on the first CPU that it may use, or on the next one. Sender and receiver on one CPU, as on a
// gateway: what is measured is work, not the waking of a second core. No: there are fewer.
inline bool stay_on_one_cpu(int next = 0) {
    static cpu_set_t allowed; // as it was before the first of these
    if (CPU_COUNT(&allowed) == 0)
        sched_getaffinity(0, sizeof allowed, &allowed);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (!CPU_ISSET(cpu, &allowed) || next-- > 0)
            continue;
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(cpu, &one);
        return sched_setaffinity(0, sizeof one, &one) == 0;
    }
    return false;
}

// Keeps a result alive without storing it.
template <typename T>
inline void keep(const T &value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

#endif

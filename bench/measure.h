// SPDX-License-Identifier: MIT
// What the benchmarks share: a clock, the median of some rounds, and running on one CPU.
#ifndef BENCH_MEASURE_H
#define BENCH_MEASURE_H

#include <algorithm>
#include <vector>

#include <sched.h>
#include <time.h>

inline double now_ns() {
    timespec t = {};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Sender and receiver share a CPU, as on a gateway: what is measured is work, not the waking of a second core.
inline void stay_on_one_cpu() {
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof allowed, &allowed);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (!CPU_ISSET(cpu, &allowed))
            continue;
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(cpu, &one);
        sched_setaffinity(0, sizeof one, &one);
        return;
    }
}

// Keeps a result alive without storing it.
template <typename T>
inline void keep(const T &value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

#endif

// SPDX-License-Identifier: MIT
// Instructions of one path at a time, for callgrind: a dump for each, named "path / operations".
#ifndef BENCH_COUNTS_H
#define BENCH_COUNTS_H

#include <string>

#ifdef BENCH_ALL_PEERS
#include <valgrind/callgrind.h>
#endif

// Runs the work once unseen, so that nothing is counted that happens the first time only, and then a hundred times.
template <typename Work>
void count_instructions(const char *path, unsigned operations, Work work) {
    constexpr unsigned kTimes = 100;
    const std::string name = std::string(path) + " / " + std::to_string(kTimes * operations);
    work();
#ifdef BENCH_ALL_PEERS
    CALLGRIND_ZERO_STATS;
#endif
    for (unsigned i = 0; i < kTimes; ++i)
        work();
#ifdef BENCH_ALL_PEERS
    const char *text = name.c_str();
    CALLGRIND_DUMP_STATS_AT(text);
#endif
}

#endif

// SPDX-License-Identifier: MIT
// What the benchmarks of the library measure: paths, each done by the library and by its peers.
//
// Library and peers stand in shared objects of their own, so that each is reached by the same kind of call.
#ifndef BENCH_LIBRARY_PATHS_H
#define BENCH_LIBRARY_PATHS_H

#include <cstdint>
#include <vector>

constexpr const char *kLibrary = "library";

struct Variant {
    const char *path; // what is done: "buffer add"
    const char *by;   // kLibrary, or a peer's name
    // Does it `operations` times. Whoever does the same path answers the same.
    uint64_t (*run)();
    unsigned operations;
};

void add_buffer_paths(std::vector<Variant> &variants);
void add_name_paths(std::vector<Variant> &variants);
void add_data_block_paths(std::vector<Variant> &variants);
void add_call_paths(std::vector<Variant> &variants);
void add_trace_paths(std::vector<Variant> &variants);

inline std::vector<Variant> all_variants() {
    std::vector<Variant> variants;
    add_buffer_paths(variants);
    add_name_paths(variants);
    add_data_block_paths(variants);
    add_call_paths(variants);
    add_trace_paths(variants);
    return variants;
}

#endif

// SPDX-License-Identifier: MIT
// Each path once by the library and by each peer, to see that all of them still do the same:
//
//   bench_library --once       no figure; status 1 when a peer's answer is another one
//   bench_library --counts     the library's paths, a hundred times each, for callgrind: one dump for each path
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "../support/counts.h"
#include "../support/measure.h"
#include "paths.h"

namespace {

int run_once() {
    std::map<std::string, uint64_t> answers;
    int wrong = 0;
    for (const Variant &variant : all_variants()) {
        const uint64_t answer = variant.run();
        const auto [known, is_first] = answers.emplace(variant.path, answer);
        if (is_first || known->second == answer)
            continue;
        std::fprintf(stderr, "%s: %s answers %llu, the library %llu\n", variant.path, variant.by,
                     static_cast<unsigned long long>(answer), static_cast<unsigned long long>(known->second));
        wrong = 1;
    }
    return wrong;
}

int run_for_counts() {
    for (const Variant &variant : all_variants())
        if (variant.operations != 0 && strcmp(variant.by, kLibrary) == 0)
            count_instructions(variant.path, variant.operations, [&] { keep(variant.run()); });
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 2 && strcmp(argv[1], "--once") == 0)
        return run_once();
    if (argc == 2 && strcmp(argv[1], "--counts") == 0)
        return run_for_counts();
    std::fputs("usage: bench_library --once|--counts\n", stderr);
    return 2;
}

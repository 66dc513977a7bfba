// SPDX-License-Identifier: MIT
// Each path by the library and by each peer, timed by Google Benchmark. Its options apply; ./bench/run gives them.
#include <benchmark/benchmark.h>

#include <string>

#include "../support/measure.h"
#include "paths.h"

int main(int argc, char **argv) {
    stay_on_one_cpu();
    const std::vector<Variant> variants = all_variants();
    for (const Variant &variant : variants) {
        if (variant.operations == 0)
            continue;
        const auto timed = [&variant](benchmark::State &state) {
            for (auto _ : state)
                benchmark::DoNotOptimize(variant.run());
            state.counters["operations"] = variant.operations;
        };
        benchmark::RegisterBenchmark((std::string(variant.path) + "/" + variant.by).c_str(), timed);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

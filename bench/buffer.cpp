// SPDX-License-Identifier: MIT
// The library's own hot paths, each against the plainest code that does the same job: writing and walking a parameter
// buffer against memcpy of the same bytes; the look-ups of names against a linear search with strcmp.
//
//   ./bench/run buffer        prints one row per path with its ratio
//   bench_buffer --once       one iteration, as a test

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "libvoice_plugin.h"
#include "measure.h"

namespace {

int iterations = 2000000;
int rounds = 7;

template <typename Work>
double per_call(Work work) {
    std::vector<double> times;
    for (int r = 0; r < rounds; ++r) {
        const double start = now_ns();
        for (int i = 0; i < iterations; ++i)
            work(i);
        times.push_back((now_ns() - start) / iterations);
    }
    return median(times);
}

void row(const char *name, double ours, const char *peer, double theirs) {
    std::printf("%-34s %7.1f ns   %-30s %7.1f ns   ratio %.2f\n", name, ours, peer, theirs, ours / theirs);
}

alignas(8) uint8_t buffer[256];
alignas(8) uint8_t copy[256];
const uint32_t kIds[4] = {LIBVOICE_PARAM_al_ri_freq, LIBVOICE_PARAM_callsrv_eplineid, LIBVOICE_PARAM_zil_ep_id,
                          LIBVOICE_PARAM_zil_msg_id};

uint32_t write_four(int value) {
    uint8_t *cursor = buffer;
    uint32_t remaining = sizeof buffer;
    for (const uint32_t id : kIds)
        libvoice_add_param(id, sizeof value, &value, &cursor, &remaining);
    return sizeof buffer - remaining;
}

} // namespace

int main(int argc, char **argv) {
    if (argc > 1 && std::strcmp(argv[1], "--once") == 0)
        iterations = rounds = 1;

    const uint32_t used = write_four(1);
    if (used != 4 * 12) {
        std::fprintf(stderr, "bench_buffer: four words take %u bytes, expected 48\n", used);
        return 1;
    }
    std::vector<uint32_t> ids;
    std::vector<std::string> names;
    for (uint32_t package = 1; package < 256; ++package)
        for (uint32_t item = 0; item < 65536; ++item)
            for (const uint32_t kind : {0x10000000u, 0x20000000u}) {
                const uint32_t id = kind | package << 16 | item;
                const char *name = libvoice_param_str(id);
                if (name[0] != '?') {
                    ids.push_back(id);
                    names.emplace_back(name);
                }
            }
    const size_t count = ids.size();

    row("write four words", per_call([](int i) { keep(write_four(i)); }), "memcpy of the 48 bytes", per_call([](int i) {
            std::memcpy(&copy[0], &i, sizeof i);
            std::memcpy(buffer, copy, 48);
            keep(buffer[0]);
        }));
    row("walk four items", per_call([used](int) {
            uint8_t *cursor = buffer;
            uint32_t remaining = used;
            uint32_t id = 0;
            uint32_t length = 0;
            uint8_t *value = nullptr;
            while (remaining != 0)
                libvoice_get_current_param(&id, &length, &value, &cursor, &remaining);
            keep(value);
        }),
        "memcpy of the 48 bytes", per_call([](int) {
            std::memcpy(copy, buffer, 48);
            keep(copy[0]);
        }));
    row("identifier to name", per_call([&](int i) { keep(libvoice_param_str(ids[static_cast<size_t>(i) % count])); }),
        "linear search", per_call([&](int i) {
            const uint32_t wanted = ids[static_cast<size_t>(i) % count];
            size_t k = 0;
            while (ids[k] != wanted)
                ++k;
            keep(names[k].c_str());
        }));
    row("name to identifier",
        per_call([&](int i) { keep(libvoice_str_to_param(names[static_cast<size_t>(i) % count].c_str())); }),
        "linear search with strcmp", per_call([&](int i) {
            const char *wanted = names[static_cast<size_t>(i) % count].c_str();
            size_t k = 0;
            while (std::strcmp(names[k].c_str(), wanted) != 0)
                ++k;
            keep(ids[k]);
        }));
    return 0;
}

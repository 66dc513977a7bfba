// SPDX-License-Identifier: MIT
// What more plugins, more endpoints, a load and a tap cost, with a process for the application and one for each plugin. Prints
// nanoseconds, one figure for each round, as JSON. Worlds to be compared stand side by side, and have their turns in each round.
//
//   bench_scale [--cpus 1|2] [--rounds N] [--batch N]   application and plugins on one CPU, or plugins on the second
//   bench_scale --once                                  everything once, without a figure
#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>

#include "../support/measure.h"
#include "../support/program.h"
#include "raw.h"
#include "world.h"

namespace {

struct Size {
    int plugins;
    int endpoints;
};
constexpr Size kSizes[] = {{1, 1}, {1, 8}, {1, 32}, {2, 32}, {4, 32}, {8, 8}, {8, 32}};
constexpr Size kLargest = {LIBVOICE_PLUGINS, LIBVOICE_ENDPOINTS};
constexpr char kRetriesFaster[] = "100"; // an attempt to connect each 100 ms
constexpr uint32_t kLoad = 10000;        // events a second
constexpr int kStarts = 5;               // rounds, for each one that starts processes

std::vector<Figures> figures;

std::vector<double> &figures_of(const std::string &path, const std::string &by) {
    for (Figures &one : figures)
        if (one.path == path && one.by == by)
            return one.ns;
    figures.push_back({path, by, {}});
    return figures.back().ns;
}

uint32_t count_of(int number) {
    return static_cast<uint32_t>(number);
}

// The same packets without bus and library: what more processes cost is the machine's.
void raw_measure(RawWorld &world, const char *name, const Options &options) {
    const double start = now_ns();
    world.exchange(count_of(options.batch));
    figures_of("packet and answer", name).push_back((now_ns() - start) / options.batch);
}

// Signals, each of which is answered by an event: however many there are besides.
void exchanges_measure(const Options &options) {
    std::vector<std::unique_ptr<World>> worlds;
    for (const Size &size : kSizes)
        worlds.push_back(std::make_unique<World>(size.plugins, size.endpoints, options.cpus == 2));
    RawWorld one(1, options.cpus == 2);
    RawWorld all(kLargest.plugins, options.cpus == 2);
    for (int round = 0; round < options.rounds; ++round) {
        raw_measure(one, "1 process on a raw socket", options);
        raw_measure(all, "8 processes on raw sockets", options);
        for (const auto &world : worlds) {
            const double used = world->processor_time();
            const double start = now_ns();
            world->carry_out({Work::exchange, count_of(options.batch), 0});
            const double took = now_ns() - start;
            figures_of("signal and event", world->name()).push_back(took / options.batch);
            figures_of("the same, processor time", world->name())
                .push_back((world->processor_time() - used) / options.batch);
        }
    }
}

// The application's processor and the watcher's are two, where there are two: what counts is what watching costs the bus.
// Each kind of work has worlds of its own: events that are still on their way would be counted with the next one's.
void watching_measure(const Options &options, Work work, const char *path, int count) {
    World plain(1, 1, options.cpus == 2);
    World tapped(1, 1, options.cpus == 2);
    World captured(1, 1, options.cpus == 2);
    tapped.watcher_attach(tap_serve);
    std::vector<std::pair<const char *, World *>> worlds = {{"without a tap", &plain}, {"with a tap", &tapped}};
    if (capture_can_serve()) {
        captured.watcher_attach(capture_serve);
        worlds.emplace_back("with voicectl capture", &captured);
    }
    for (int round = 0; round < 2 * options.rounds; ++round)
        for (const auto &[name, world] : worlds) {
            const double start = now_ns();
            world->carry_out({work, count_of(count), 0});
            figures_of(path, name).push_back((now_ns() - start) / count);
        }
}

void watching_all(const Options &options) {
    watching_measure(options, Work::stream, "events, 32 a turn", 32 * std::max(options.batch / 2, 1));
    watching_measure(options, Work::exchange, "signal and event, watched", options.batch);
}

double share_of(std::vector<float> &sorted, double share) {
    const double at = share * static_cast<double>(sorted.size() - 1);
    return sorted[static_cast<size_t>(at)];
}

void load_measure(const Options &options) {
    World world(kLargest.plugins, kLargest.endpoints, options.cpus == 2);
    const uint32_t events = options.once ? kLoad / 50 : kLoad;
    for (int round = 0; round < std::min(options.rounds, kStarts); ++round) {
        world.carry_out({Work::pace, events, kLoad});
        const Notes &notes = world.notes();
        std::vector<float> late(notes.late, notes.late + notes.measured);
        std::sort(late.begin(), late.end());
        const std::string by = "10,000 a second";
        figures_of("event comes after, half of them", by).push_back(share_of(late, 0.5));
        figures_of("event comes after, 99 of 100", by).push_back(share_of(late, 0.99));
        figures_of("event comes after, the last", by).push_back(share_of(late, 1));
    }
}

void registration_measure(const Options &options) {
    for (int round = 0; round < std::min(options.rounds, kStarts); ++round) {
        const World one(1, kLargest.endpoints, options.cpus == 2);
        figures_of("32 endpoints registered", "1 plugin").push_back(one.notes().registering[0]);
        World all(kLargest.plugins, kLargest.endpoints, options.cpus == 2);
        all.restart_application();
        const double *attempts = all.notes().attempt;
        const double first = *std::min_element(attempts, attempts + kLargest.plugins);
        figures_of("all back after a restart", all.name()).push_back(all.notes().complete - first);
    }
}

} // namespace

int main(int argc, char **argv) {
    // Many short rounds, of which some pass undisturbed.
    const Options options = options_read(argc, argv, {false, 1, 240, 50});
    setenv("ZIL_TRACE_LEVEL", "0", 1);
    setenv("KEX_TIME_FACTOR", kRetriesFaster, 1);
    folder_create();
    stay_on_one_cpu();
    for (const auto measure : {exchanges_measure, watching_all, load_measure, registration_measure})
        measure(options);
    leave_nothing();
    if (!options.once)
        print(figures);
    return 0;
}

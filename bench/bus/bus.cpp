// SPDX-License-Identifier: MIT
// The bundled bus, and the library over it, beside other ways between two processes. Prints nanoseconds for each call, one
// figure for each round, as JSON. In a round everybody gets a batch of everything, so that what else the machine does hits all
// alike.
//
//   bench_bus [--cpus 1|2] [--rounds N] [--batch N]     both processes on one CPU or on two
//   bench_bus --once                                    everything once, without a figure
#include <cstdlib>
#include <functional>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "../support/measure.h"
#include "../support/program.h"
#include "peer.h"

unsigned char event_record[kRecordBytes];
int null_device;

namespace {

int ready_pipe[2];

struct Path : Figures {
    std::function<void(int)> run;
};

void wait_ready(const char *name) {
    char byte;
    if (read(ready_pipe[0], &byte, 1) != 1)
        die(name);
}

} // namespace

void tell_ready() {
    if (write(ready_pipe[1], "r", 1) != 1)
        die("write");
}

int main(int argc, char **argv) {
    // Many short rounds, of which some pass undisturbed.
    const Options options = options_read(argc, argv, {false, 1, 100, 250});
    setenv("ZIL_TRACE_LEVEL", "0", 1); // a full queue is part of the measurement, not news
    for (size_t i = 0; i < kRecordBytes; ++i)
        event_record[i] = static_cast<unsigned char>(i);
    null_device = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null_device < 0 || pipe(ready_pipe) != 0)
        die("set-up");
    folder_create();

    std::vector<std::unique_ptr<Peer>> peers;
    peers.push_back(bundled_bus_peer());
    peers.push_back(raw_peer());
    peers.push_back(sd_bus_peer());
#ifdef BENCH_SDBUS
    peers.push_back(sd_bus_binding_peer());
#endif
#ifdef BENCH_ALL_PEERS
    peers.push_back(libdbus_peer());
#endif
    stay_on_one_cpu();
    const bool second = options.cpus == 2;
    VoicePair voice;
    child_start([&] { voice.serve_plugin(); }, second);
    child_start([&] { voice.serve_application(); }, false);
    wait_ready("the application");
    for (const auto &peer : peers) {
        peer->prepare();
        child_start([&] { peer->serve(); }, second);
    }
    for (const auto &peer : peers)
        wait_ready(peer->name);
    for (const auto &peer : peers)
        peer->connect();
    Peer &raw = *peers[1];

    std::vector<Path> paths;
    const auto add = [&](const char *path, const char *by, std::function<void(int)> run) {
        paths.push_back({{path, by, {}}, std::move(run)});
    };
    for (const auto &one : peers) {
        Peer *peer = one.get();
        add("round trip", peer->name, [peer](int n) { peer->round_trips(n); });
        add("with 3 descriptors", peer->name, [peer](int n) { peer->round_trips_with_descriptors(n); });
        add("without reply, 32 a turn", peer->name, [peer](int n) { peer->calls_without_reply(n); });
    }
    add("signal and event", "library", [&](int n) { voice.signals(n); });
    add("signal and event", "raw socket", [&](int n) { raw_exchange(raw, n); });

    for (int round = 0; round < options.rounds; ++round)
        for (Path &path : paths) {
            const double start = now_ns();
            path.run(options.batch);
            path.ns.push_back((now_ns() - start) / options.batch);
        }
    leave_nothing();
    if (!options.once)
        print({paths.begin(), paths.end()});
    return 0;
}

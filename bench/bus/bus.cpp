// SPDX-License-Identifier: MIT
// The bundled bus, and the library over it, beside other ways between two processes. Prints nanoseconds for each call, one
// figure for each round, as JSON. In a round everybody gets a batch of everything, so that what else the machine does hits all
// alike.
//
//   bench_bus [--cpus 1|2] [--rounds N] [--batch N]     both processes on one CPU or on two
//   bench_bus --once                                    everything once, without a figure
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "../support/measure.h"
#include "peer.h"

unsigned char event_record[kRecordBytes];
int null_device;

namespace {

char folder[] = "/tmp/bench-bus-XXXXXX";
int ready_pipe[2];
std::vector<pid_t> children;

struct Options {
    bool once = false;
    int cpus = 1;
    int rounds = 100; // many short ones, of which some pass undisturbed
    int batch = 250;
};

struct Path {
    const char *name;
    const char *by;
    std::function<void(int)> run;
    std::vector<double> ns;
};

int number_from(const char *word) {
    char *end = nullptr;
    const long number = word ? std::strtol(word, &end, 10) : 0;
    return end && *end == '\0' && number > 0 && number <= 1000000 ? static_cast<int>(number) : 0;
}

bool options_read(int argc, char **argv, Options &options) {
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--once") {
            options = {true, 1, 1, 1};
            continue;
        }
        int *place = word == "--cpus" ? &options.cpus : word == "--rounds" ? &options.rounds : nullptr;
        if (word == "--batch")
            place = &options.batch;
        if (!place || (*place = number_from(argv[++i < argc ? i : argc])) == 0)
            return false;
    }
    return options.cpus <= 2;
}

void wait_ready(const char *name) {
    char byte;
    if (read(ready_pipe[0], &byte, 1) != 1)
        die(name);
}

// A child that does this and nothing else; it goes with its parent.
void child_start(const std::function<void()> &serve, bool on_second_cpu) {
    const pid_t pid = fork();
    if (pid < 0)
        die("fork");
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (on_second_cpu)
            stay_on_one_cpu(1);
        serve();
        _exit(0);
    }
    children.push_back(pid);
}

void print(const std::vector<Path> &paths) {
    std::puts("[");
    for (size_t i = 0; i < paths.size(); ++i) {
        std::printf("{\"path\": \"%s\", \"by\": \"%s\", \"ns\": [", paths[i].name, paths[i].by);
        for (size_t k = 0; k < paths[i].ns.size(); ++k)
            std::printf("%s%.1f", k != 0 ? ", " : "", paths[i].ns[k]);
        std::printf("]}%s\n", i + 1 < paths.size() ? "," : "");
    }
    std::puts("]");
}

void leave_nothing() {
    for (const pid_t child : children) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    const std::string command = std::string("rm -rf ") + folder;
    if (std::system(command.c_str()) != 0)
        std::fprintf(stderr, "bench_bus: %s is left\n", folder);
}

} // namespace

void die(const char *what) {
    std::fprintf(stderr, "bench_bus: %s: %s\n", what, std::strerror(errno));
    std::_Exit(1);
}

void tell_ready() {
    if (write(ready_pipe[1], "r", 1) != 1)
        die("write");
}

std::string socket_path(const char *name) {
    return std::string(folder) + "/" + name;
}

int main(int argc, char **argv) {
    Options options;
    if (!options_read(argc, argv, options)) {
        std::fputs("usage: bench_bus [--once] [--cpus 1|2] [--rounds N] [--batch N]\n", stderr);
        return 2;
    }
    setenv("ZIL_TRACE_LEVEL", "0", 1); // a full queue is part of the measurement, not news
    for (size_t i = 0; i < kRecordBytes; ++i)
        event_record[i] = static_cast<unsigned char>(i);
    null_device = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null_device < 0 || pipe(ready_pipe) != 0 || !mkdtemp(folder))
        die("set-up");

    std::vector<std::unique_ptr<Peer>> peers;
    peers.push_back(bundled_bus_peer());
    peers.push_back(raw_peer());
    peers.push_back(sd_bus_peer());
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
    for (const auto &one : peers) {
        Peer *peer = one.get();
        paths.push_back({"round trip", peer->name, [peer](int n) { peer->round_trips(n); }, {}});
        paths.push_back(
            {"with 3 descriptors", peer->name, [peer](int n) { peer->round_trips_with_descriptors(n); }, {}});
        paths.push_back({"without reply, 32 a turn", peer->name, [peer](int n) { peer->calls_without_reply(n); }, {}});
    }
    paths.push_back({"signal and event", "library", [&](int n) { voice.signals(n); }, {}});
    paths.push_back({"signal and event", "raw socket", [&](int n) { raw_exchange(raw, n); }, {}});

    for (int round = 0; round < options.rounds; ++round)
        for (Path &path : paths) {
            const double start = now_ns();
            path.run(options.batch);
            path.ns.push_back((now_ns() - start) / options.batch);
        }
    leave_nothing();
    if (!options.once)
        print(paths);
    return 0;
}

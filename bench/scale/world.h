// SPDX-License-Identifier: MIT
// A voice system to measure: an application and its plugins, a process each, written as hosts are. The program that measures
// gives the application orders and waits for its word.
#ifndef BENCH_SCALE_WORLD_H
#define BENCH_SCALE_WORLD_H

#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

#include "libvoice_plugin.h"

constexpr int kMaxMeasured = 100000;

// What the processes of a world write for the one that measures. All times are those of CLOCK_MONOTONIC in nanoseconds.
struct Notes {
    double attempt[LIBVOICE_PLUGINS];     // the last time that the plugin tried to connect
    double registering[LIBVOICE_PLUGINS]; // how long it took to register all its endpoints
    double complete;                      // when the first event of the last endpoint came
    int measured;
    float late[kMaxMeasured]; // how much later than due each event came
};

enum class Work : uint32_t {
    exchange, // signals, one after the other to each endpoint in turn; each is answered by an event
    stream,   // events of the first endpoint, 32 in a turn of its plugin
    pace,     // events that are due at times given beforehand, of all plugins
};

struct Order {
    Work work;
    uint32_t count;    // of events
    uint32_t a_second; // pace: how many are due
};

class World {
public:
    World(int plugins, int endpoints, bool on_two_cpus);
    World(const World &) = delete;
    World &operator=(const World &) = delete;
    ~World();

    // Until it says that the order has been carried out.
    void carry_out(const Order &order);
    // Kills the application and starts it again; returns when all endpoints are back.
    void restart_application();
    // A process that watches, on the second CPU if there is one: one of those that serve below.
    void watcher_attach(void (*serve)(const std::string &socket, int words));
    // What all processes of it have used.
    double processor_time() const;
    const Notes &notes() const { return *notes_; }
    std::string name() const;

private:
    struct Pipe {
        int from;
        int to;
    };
    static Pipe pipe_open();
    void application_start();
    void wait_for_word();

    const int plugins_;
    const int endpoints_;
    const bool on_two_cpus_;
    const std::string path_;
    const Pipe orders_;
    const Pipe words_;
    Notes *notes_;
    pid_t application_ = 0;
    std::vector<pid_t> others_;
};

// What a process of a world is told.
struct Place {
    std::string socket;
    Notes *notes;
    int endpoints; // application: of all plugins; plugin: of this one
    int index;     // plugin: from 0
    int orders;    // application: where they come from
    int words;     // application: where it says that one has been carried out
};

// Each does nothing else in its process, and does not return.
[[noreturn]] void application_serve(const Place &place);
[[noreturn]] void plugin_serve(const Place &place);
[[noreturn]] void tap_serve(const std::string &socket, int words);
// voicectl, if it stands beside this program, keeps all in a file.
bool capture_can_serve();
[[noreturn]] void capture_serve(const std::string &socket, int words);

#endif

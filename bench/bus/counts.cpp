// SPDX-License-Identifier: MIT
// Both ends of the bus in one process, so that nothing depends on when a process runs.
//
//   bench_bus_counts --callgrind    calls over the bus, signals and events over it by the library, for callgrind
//   bench_bus_counts --heap         how often each takes memory from the heap, at both ends; status 1 when the library does
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "../support/counts.h"
#include "../support/heap.h"
#include "kex_host.h"
#include "libvoice_plugin.h"

namespace {

constexpr int32_t kEndpoint = 5;

struct Signal {
    libvoice_signal_t head;
    uint8_t params[36];
} signal_record;

struct Event {
    libvoice_event_t head;
    uint8_t params[36];
} event_record;

kex_t *from, *to;
peer_t *peer;
voice_plugin_entry_t plugin;
int taken;

int32_t take_signal(libvoice_signal_t *) {
    return ++taken, 0;
}
int32_t take_event(libvoice_event_t *) {
    return ++taken, 0;
}

[[noreturn]] void die(const char *what) {
    std::fprintf(stderr, "bench_bus_counts: %s\n", what);
    std::exit(1);
}

// Turns of both loops until what was sent is there, and what it causes.
void deliver() {
    const int before = taken;
    for (int turns = 0; taken == before; ++turns) {
        if (turns == 1000)
            die("a call does not arrive");
        kex_dispatch(from);
        kex_dispatch(to);
    }
}

void send_signal() {
    libvoice_send_signal(&signal_record.head);
    deliver();
}

void send_event() {
    libvoice_send_event(&event_record.head);
    deliver();
}

void answered(request_t *request) {
    request_destroy(request);
}

// With a reply, which the sender takes in.
void round_trip() {
    request_t *r = request_create_executeFunction("fxs1.EndPoint.FXS1", "signal", LIBVOICE_REQUEST_FLAGS_MEDIA);
    variant_t v;
    variant_initialize(&v, VARIANT_BYTES);
    variant_setByteArray(&v, &signal_record, sizeof signal_record);
    request_addParameter(r, "signal", &v);
    variant_cleanup(&v);
    request_setDoneHandler(r, answered);
    if (!kex_sendRequest(from, peer, r))
        die("a call cannot be sent");
    deliver();
    kex_dispatch(to);
    kex_dispatch(from);
}

void thirty_two_events() {
    for (int i = 0; i < 32; ++i)
        libvoice_send_event(&event_record.head);
    const int wanted = taken + 32;
    while (taken < wanted)
        deliver();
}

void set_up(const char *path) {
    libvoice_callbacks_t callbacks = {};
    libvoice_app_callbacks_t app_callbacks = {};
    from = kex_create("from");
    to = kex_create("to");
    if (!from || !to ||
        !kex_declareFunctions(to, libvoice_bus_functions(), LIBVOICE_BUS_FUNCTIONS, LIBVOICE_BUS_FUNCTION_COLUMNS) ||
        !kex_declareObject(to, LIBVOICE_APPLICATION_PATH, LIBVOICE_APPLICATION_CLASS) ||
        !kex_declareObject(to, "fxs1.EndPoint.FXS1", "EndPoint") || !connection_listenOnIPC(kex_connection(to), path))
        die("no bus");
    peer = kex_client_connect(from, (std::string("kex://ipc:[") + path + "]").c_str());
    if (!peer)
        die("no connection");
    libvoice_set_kex_handler(from);
    libvoice_set_kex_peer_handler(peer);
    libvoice_set_pluginname("fxs1");
    callbacks.voice_plugin_signal = take_signal;
    app_callbacks.voice_app_event = take_event;
    libvoice_registered_callbacks = callbacks;
    libvoice_app_registered_callbacks = app_callbacks;
    libvoice_endpoint_t &entry = endpt_table[0];
    entry.used = 1;
    entry.endpoint = kEndpoint;
    std::strcpy(entry.endpoint_path, "fxs1.EndPoint.FXS1");
    plugin.peer = peer;
    entry.plugin_table = &plugin;
    signal_record.head.endpoint = event_record.head.endpoint = kEndpoint;
    signal_record.head.length = sizeof signal_record.params;
    event_record.head.length = sizeof event_record.params;
}

struct Path {
    const char *name;
    unsigned operations;
    void (*run)();
};
const Path paths[] = {
    {"signal over the bus", 1, send_signal},
    {"event over the bus", 1, send_event},
    {"events over the bus, 32 a turn", 32, thirty_two_events},
    {"call over the bus, with reply", 1, round_trip},
};

// Whether none of the memory was taken by the library.
bool show_heap() {
    unsigned by_library = 0;
    std::printf("%-34s%10s%10s%12s\n", "allocations of each", "library", "bus", "C library");
    for (const Path &path : paths) {
        path.run(); // once unseen: what is kept for the next time
        allocations = {};
        allocations_count = true;
        path.run();
        allocations_count = false;
        const double times = path.operations;
        std::printf("%-34s%10.1f%10.1f%12.1f\n", path.name, allocations.voice_plugin / times, allocations.bus / times,
                    allocations.others / times);
        by_library += allocations.voice_plugin;
    }
    return by_library == 0;
}

} // namespace

int main(int argc, char **argv) {
    char folder[] = "/tmp/bench-counts-XXXXXX";
    if (!mkdtemp(folder))
        die("mkdtemp");
    setenv("ZIL_TRACE_LEVEL", "0", 1);
    const std::string path = std::string(folder) + "/sock";
    set_up(path.c_str());
    bool good = true;
    if (argc > 1 && std::strcmp(argv[1], "--heap") == 0)
        good = show_heap();
    else
        for (const Path &one : paths)
            count_instructions(one.name, one.operations, one.run);
    kex_destroy(from);
    kex_destroy(to);
    unlink((path + ".lock").c_str());
    unlink(path.c_str());
    rmdir(folder);
    return good ? 0 : 1;
}

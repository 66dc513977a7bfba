// SPDX-License-Identifier: MIT
// What the benchmark of the bus measures: ways between two processes, this one that calls and a child that serves.
//
// The payload is that of an event: the plugin's name and a record of 56 bytes.
#ifndef BENCH_BUS_PEER_H
#define BENCH_BUS_PEER_H

#include <cstddef>
#include <memory>
#include <string>

#include "../support/program.h"

constexpr const char *kPlugin = "fxs1";
constexpr size_t kRecordBytes = 56;
constexpr int kTurn = 32; // calls that are queued before the loop turns
constexpr int kDescriptors = 3;

extern unsigned char event_record[kRecordBytes];
extern int null_device; // a descriptor to send

// From a child: it serves, or soon will.
void tell_ready();

class Peer {
public:
    explicit Peer(const char *its_name) : name(its_name) {}
    virtual ~Peer() = default;
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    const char *const name;

    virtual void prepare() {} // before the two part
    // In the child, until it is killed; tells when it is ready.
    [[noreturn]] virtual void serve() = 0;
    virtual void connect() = 0; // in the parent, when the child is ready

    // Each call with its reply before the next.
    virtual void round_trips(int count) = 0;
    virtual void round_trips_with_descriptors(int count) = 0;
    // Turns of 32 calls, until the last has been handled.
    virtual void calls_without_reply(int count) = 0;
};

// One that has calls of functions by name: "event", or "media" with three descriptors.
class Caller : public Peer {
public:
    using Peer::Peer;

    void round_trips(int count) override {
        for (int i = 0; i < count; ++i)
            call("event");
    }
    void round_trips_with_descriptors(int count) override {
        for (int i = 0; i < count; ++i)
            call("media");
    }

private:
    virtual void call(const char *function) = 0; // and its reply
};

std::unique_ptr<Peer> raw_peer();
std::unique_ptr<Peer> sd_bus_peer();
std::unique_ptr<Peer> bundled_bus_peer();
#ifdef BENCH_SDBUS
std::unique_ptr<Peer> sd_bus_binding_peer();
#endif
#ifdef BENCH_ALL_PEERS
std::unique_ptr<Peer> libdbus_peer();
#endif

// An application and a plugin in two children: signals that are answered by events. Both run the loop that hosts run, so the
// application is told by a pipe how many signals are wanted, and answers on another when the last event has come.
class VoicePair {
public:
    VoicePair();
    [[noreturn]] void serve_plugin();
    [[noreturn]] void serve_application();
    void signals(int count);

private:
    int listens_[2]; // on which the plugin hears that the application listens
    int orders_[2];
    int done_[2];
};

// The same bytes there and back over the raw socket.
void raw_exchange(Peer &raw, int count);

#endif

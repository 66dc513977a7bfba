// SPDX-License-Identifier: MIT
// Implements served_bus.h.
#include "served_bus.h"
#include "served_functions.h"

#include <algorithm>

namespace support {

peer_t *peer_of(RawPeer &raw, kex_t *bus) {
    peer_t *peer = nullptr;
    served::probe = [&peer](function_call_t *call, argument_list_t *, variant_t *) {
        peer = fcall_peer(call);
        fcall_destroy(call);
        return 0;
    };
    EXPECT_TRUE(raw.send(Packet(kOneWayCall, 1).text("Probe").text("run").byte(0)));
    EXPECT_TRUE(turn_until({bus}, [&peer] { return peer != nullptr; }));
    served::probe = nullptr;
    return peer;
}

ServedBus::ServedBus(const char *name) {
    served::reset();
    bus = kex_create(name);
    served::declare(bus);
    EXPECT_NE(connection_listenOnIPC(kex_connection(bus), socket.c_str()), nullptr);
}

ServedBus::~ServedBus() {
    kex_destroy(bus);
    served::reset();
}

void ServedBus::greet(RawPeer &raw, const std::string &name) {
    EXPECT_TRUE(raw.send(hello(name)));
    turn_until_idle({bus});
    raw.receive_all();
}

std::unique_ptr<RawPeer> ServedBus::connected_peer(const std::string &name) {
    auto raw = std::make_unique<RawPeer>(socket);
    greet(*raw, name);
    return raw;
}

void ServedBus::show_table(RawPeer &raw, rlim_t size) {
    const TableSize table(size);
    for (int looks = 0; looks < 40; looks++) {
        raw.send(Packet(kWaiting, 1));
        kex_dispatch(bus);
    }
}

Packet ServedBus::note(uint32_t number) {
    return Packet(kOneWayCall, number).text("Probe").text("note").byte(1).text("number").byte(8).word(number);
}

Packet ServedBus::run() {
    return Packet(kOneWayCall, 1).text("Probe").text("run").byte(0);
}

void ServedBus::make_run_take(std::chrono::milliseconds time) {
    served::probe = [time](function_call_t *call, argument_list_t *, variant_t *) {
        auto end = std::chrono::steady_clock::now() + time;
        while (std::chrono::steady_clock::now() < end)
            ;
        served::log.push_back("run");
        fcall_destroy(call);
        return 0;
    };
}

ptrdiff_t ServedBus::place_of(const std::string &line) {
    return std::find(served::log.begin(), served::log.end(), line) - served::log.begin();
}

bool ServedBus::has(const std::string &line) {
    return place_of(line) < static_cast<ptrdiff_t>(served::log.size());
}

} // namespace support

// SPDX-License-Identifier: MIT
// What the tests of kex_waitForReply() share: a request that waits for a raw peer's reply, and a clock.
#ifndef BUS_TESTS_WAIT_FIXTURE_H
#define BUS_TESTS_WAIT_FIXTURE_H

#include "served_functions.h"
#include "support/bus_test.h"
#include "support/raw_peer.h"

#include <sys/time.h>

namespace support {

// A bus connected to a raw peer that has accepted it, so that the test plays the peer message by message.
class Wait : public TwoBuses {
protected:
    Wait() {
        served::reset();
        served::declare(server);
        raw.send(hello("plugin"));
        served::probe = [&](function_call_t *call, argument_list_t *, variant_t *) {
            plugin = fcall_peer(call);
            fcall_destroy(call);
            return 0;
        };
        raw.send(Packet(kOneWayCall, 1).text("Probe").text("run").byte(0));
        EXPECT_TRUE(turn_until([&] { return plugin != nullptr; }));
        raw.receive_all();
        request = request_create_executeFunction("Theirs", "slow", 0);
        EXPECT_TRUE(kex_sendRequest(server, plugin, request));
        kex_dispatch(server);
        auto sent = raw.receive_all();
        EXPECT_EQ(sent.size(), 1u);
        serial = serial_of(sent.at(0));
    }
    ~Wait() override {
        request_destroy(request);
        served::reset();
    }

    Packet reply() const { return Packet(kReply, serial).byte(0).byte(0); }
    Packet note(uint32_t number) const {
        return Packet(kOneWayCall, 10 + number).text("Probe").text("note").byte(1).text("number").byte(8).word(number);
    }

    RawPeer raw{socket};
    peer_t *plugin = nullptr;
    request_t *request = nullptr;
    uint32_t serial = 0;
};

// A clock that moves by itself: each look at it is some time later.
struct RunningClock {
    uint64_t now = 1000000000;
    uint64_t step = 500000000;
    static uint64_t read(void *self) {
        auto *clock = static_cast<RunningClock *>(self);
        return clock->now += clock->step;
    }
};

constexpr timeval kSeconds(int seconds) {
    return {seconds, 0};
}

} // namespace support

#endif

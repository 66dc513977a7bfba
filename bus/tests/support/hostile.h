// SPDX-License-Identifier: MIT
// A fixture for what no well-behaved peer does to a bus, which goes on to serve good ones.
#ifndef BUS_TESTS_HOSTILE_H
#define BUS_TESTS_HOSTILE_H

#include "served_bus.h"

namespace support {

class Hostile : public ServedBus {
protected:
    Hostile() : ServedBus("victim") {}

    void settle() { turn_until_idle({bus}); }
    // Still serves a good peer.
    void expect_alive() {
        auto good = connected_peer();
        good->send(Packet(kCall, 5).text("Probe").text("echo").byte(1).text("text").byte(0).text("x"));
        settle();
        auto packets = good->receive_all();
        ASSERT_EQ(packets.size(), 1u);
        EXPECT_EQ(packets[0], Packet(kReply, 5).byte(0).byte(1).byte(0).text("x").bytes());
    }
};

} // namespace support

#endif

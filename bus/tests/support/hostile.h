// SPDX-License-Identifier: MIT
// A fixture for what no well-behaved peer does to a bus, which goes on to serve good ones.
#ifndef BUS_TESTS_HOSTILE_H
#define BUS_TESTS_HOSTILE_H

#include "served_bus.h"
#include "served_functions.h"

#include <algorithm>
#include <string>
#include <vector>

namespace support {

struct BrokenPacket {
    const char *name;
    std::string bytes;
    std::vector<int> fds;
    const char *why;
};

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
    // Nothing of it is handled, its sender is told why, and so is the trace, once; nothing stays open.
    void expect_refused(const BrokenPacket &packet) {
        SCOPED_TRACE(packet.name);
        auto raw = connected_peer();
        const size_t before = open_descriptors();
        CapturedTrace trace;
        ASSERT_TRUE(raw->send(packet.bytes, packet.fds));
        settle();
        EXPECT_EQ(open_descriptors(), before + 2 - 1) << "the capture's two more, the connection one less";
        EXPECT_EQ(raw->refusal(), packet.why);
        EXPECT_TRUE(raw->is_closed());
        const std::string lines = trace.text();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 1) << lines;
        EXPECT_THAT(lines, testing::HasSubstr("connection to 'raw' (process " + std::to_string(getpid()) +
                                              ") refused: " + packet.why));
        EXPECT_TRUE(served::log.empty());
    }
};

} // namespace support

#endif

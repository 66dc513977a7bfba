// SPDX-License-Identifier: MIT
// A fixture with one bus that listens on a private socket and serves class Probe: whoever talks to it is a raw peer.
#ifndef BUS_TESTS_SERVED_BUS_H
#define BUS_TESTS_SERVED_BUS_H

#include "bus_test.h"
#include "raw_peer.h"

#include <chrono>
#include <memory>
#include <string>

namespace support {

// The peer that a raw peer is on its bus, whatever "run" was to do until now. nullptr: its call did not come within 20 s.
peer_t *peer_of(RawPeer &raw, kex_t *bus);

class ServedBus : public DescriptorTest {
protected:
    explicit ServedBus(const char *name);
    ~ServedBus() override;

    // Says hello, and reads the bus's.
    void greet(RawPeer &raw, const std::string &name = "raw");
    // One that has.
    std::unique_ptr<RawPeer> connected_peer(const std::string &name = "raw");
    // The bus looks at its table of descriptors now and then: afterwards it has seen it that small.
    void show_table(RawPeer &raw, rlim_t size);

    // Calls that want no answer.
    static Packet note(uint32_t number);
    static Packet run();
    // "run" takes this long from now on.
    static void make_run_take(std::chrono::milliseconds time);
    // Where a line stands among those of the calls that ran; behind all of them when it does not.
    static ptrdiff_t place_of(const std::string &line);
    static bool has(const std::string &line);

    ScratchDirectory scratch;
    std::string socket = scratch.path("bus");
    kex_t *bus;
};

} // namespace support

#endif

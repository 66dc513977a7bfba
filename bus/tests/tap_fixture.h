// SPDX-License-Identifier: MIT
// What the tests of the tap share: a tap at work, and its records as text.
#ifndef BUS_TESTS_TAP_FIXTURE_H
#define BUS_TESTS_TAP_FIXTURE_H

#include "kex_tap.h"
#include "served_functions.h"
#include "support/bus_test.h"

namespace support {

// One record in one line: "call client>server #1 Probe.echo text=..." with what else its kind carries.
std::string line_of(const kex_tap_record_t &record);

// The bytes of the message that the record at hand tells of.
std::string packet_of(const kex_tap_t *tap);

// A tap of the two buses, behind what it is told first.
class Tap : public TwoBuses {
protected:
    Tap() {
        served::reset();
        served::declare(server);
        tap = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
        EXPECT_NE(tap, nullptr);
        turn_until_idle();
        EXPECT_THAT(read_all(), testing::ElementsAre("watching server>tap", "connected client>server \"before\""));
    }
    ~Tap() override {
        kex_tap_close(tap);
        served::reset();
    }

    std::vector<std::string> read_all() {
        std::vector<std::string> lines;
        kex_tap_record_t record;
        while (kex_tap_next(tap, &record) == 1)
            lines.push_back(line_of(record));
        return lines;
    }

    kex_tap_t *tap;
};

} // namespace support

#endif

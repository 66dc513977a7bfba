// SPDX-License-Identifier: MIT
// Copies that a tap loses for want of memory are counted, and end nobody's connection.
#include "base/faults.h"
#include "kex_tap.h"
#include "memory_fixture.h"
#include "support/heap.h"
#include "support/raw_peer.h"

using namespace support;

namespace {

// A raw peer of the server too, and a tap on it that has read what has been so far.
struct Tapped : Connected {
    explicit Tapped(const ScratchDirectory &scratch)
        : Connected(scratch), raw(scratch.path("bus")),
          tap(kex_tap_open(uri_of(scratch.path("bus")).c_str(), nullptr, 0)) {
        EXPECT_TRUE(raw.send(hello()));
        EXPECT_NE(tap, nullptr);
        turns();
        kex_tap_record_t record;
        while (kex_tap_next(tap, &record) == 1)
            ;
    }
    ~Tapped() { kex_tap_close(tap); }

    // The tap's copy of a message that arrives.
    void lose_copy(uint32_t serial) {
        EXPECT_TRUE(raw.send(Packet(kWaiting, serial)));
        const FailingAllocation failing(1);
        kex_dispatch(server);
        EXPECT_TRUE(failing.has_failed());
    }

    RawPeer raw;
    kex_tap_t *tap;
};

// Taps only look: nobody's call is worth less because a tap has lost its copy.
TEST_F(Memory, LostTapCopyEndsNoConnection) {
    set_trace_level("0");
    Tapped both(scratch);
    request_t *r = request_create_executeFunction("M", "whole", 0);
    both.lose_copy(1);
    kex_tap_record_t record;
    EXPECT_TRUE(kex_sendRequest(both.client, both.peer, r));
    both.turns();
    EXPECT_EQ(both.closed_at_client, 0);
    ASSERT_EQ(kex_tap_next(both.tap, &record), 1);
    EXPECT_EQ(record.kind, KEX_TAP_LOST) << "it was the tap's copy";
    EXPECT_EQ(record.lost, 1u);
    request_destroy(r);
}

TEST_F(Memory, CopiesThatATapHasLostAreCountedUntilItCanBeTold) {
    set_trace_level("0");
    Tapped both(scratch);
    both.lose_copy(1);
    both.lose_copy(2);
    kex_tap_record_t record;
    EXPECT_EQ(kex_tap_next(both.tap, &record), 0);
    ASSERT_TRUE(both.raw.send(Packet(kWaiting, 3)));
    both.turns();
    ASSERT_EQ(kex_tap_next(both.tap, &record), 1);
    EXPECT_EQ(record.kind, KEX_TAP_LOST);
    EXPECT_EQ(record.lost, 2u);
    ASSERT_EQ(kex_tap_next(both.tap, &record), 1);
    EXPECT_EQ(record.serial, 3u);
}

TEST_F(Memory, ANewTapThatLosesItsFirstRecordIsToldSoFirst) {
    bool lost = false;
    for (uint32_t n = 1; n < 12 && !lost; n++) {
        Connected both(scratch);
        kex_tap_t *tap = kex_tap_open(uri.c_str(), nullptr, 0);
        ASSERT_NE(tap, nullptr);
        {
            const FailingAllocation failing(n);
            for (int i = 0; i < 4; i++)
                kex_dispatch(both.server);
        }
        kex_tap_record_t record;
        ASSERT_EQ(kex_tap_next(tap, &record), 1);
        EXPECT_NE(record.kind, KEX_TAP_CONNECTED) << "something is missing before it";
        if (record.kind == KEX_TAP_LOST) {
            lost = true;
            EXPECT_EQ(record.lost, 1u);
            EXPECT_EQ(kex_tap_next(tap, &record), 1);
            EXPECT_EQ(record.kind, KEX_TAP_CONNECTED);
        }
        kex_tap_close(tap);
    }
    EXPECT_TRUE(lost) << "none of these allocations was that of the first record";
}

TEST_F(Memory, ANewTapThatLosesItsFirstTwoRecordsIsToldOfBoth) {
    set_trace_level("0");
    bool told = false;
    for (uint32_t n = 1; n < 12 && !told; n++) {
        Connected both(scratch);
        kex_tap_t *tap = kex_tap_open(uri.c_str(), nullptr, 0);
        ASSERT_NE(tap, nullptr);
        bus::faults_read(("memory:" + std::to_string(n) + ",memory:" + std::to_string(n + 1)).c_str());
        for (int i = 0; i < 4; i++)
            kex_dispatch(both.server);
        bus::faults_read(nullptr);
        RawPeer raw(socket);
        EXPECT_TRUE(raw.send(hello()));
        both.turns();
        kex_tap_record_t record;
        ASSERT_EQ(kex_tap_next(tap, &record), 1);
        if (record.kind == KEX_TAP_LOST && record.lost == 2) {
            told = true;
            EXPECT_EQ(kex_tap_next(tap, &record), 1);
            EXPECT_STREQ(record.from.name, "raw");
        }
        kex_tap_close(tap);
    }
    EXPECT_TRUE(told) << "no two of these allocations were those of the first records";
}

} // namespace

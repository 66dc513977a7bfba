// SPDX-License-Identifier: MIT
// The table of those whose descriptors are being closed.
#include "base/limits.h"
#include "base/sender.h"

#include <gtest/gtest.h>

namespace {

class Sender : public testing::Test {
protected:
    Sender() { bus::senders_clear(); }
    ~Sender() override { bus::senders_clear(); }
};

TEST_F(Sender, IsFoundAsLongAsSomethingOfItIsLeft) {
    const uint8_t place = bus::sender_place(100);
    EXPECT_NE(place, 0);
    bus::sender_add(place);
    bus::sender_add(place);
    EXPECT_EQ(bus::sender_place(100), place);
    EXPECT_EQ(bus::sender_pending(100), 2u);
    EXPECT_EQ(bus::sender_pending(101), 0u);
    bus::sender_remove(place);
    bus::sender_remove(place);
    EXPECT_EQ(bus::sender_pending(100), 0u);
    EXPECT_EQ(bus::sender_place(101), place) << "the place is another's now";
}

TEST_F(Sender, WhatNobodyHandedOverHasAPlaceOfItsOwn) {
    EXPECT_EQ(bus::sender_place(0), 0);
    bus::sender_add(0);
    EXPECT_EQ(bus::sender_pending(0), 1u);
}

TEST_F(Sender, WhoFindsNoPlaceCountsAsNobody) {
    for (int32_t process = 1; process < static_cast<int32_t>(bus::kMaxPeers); process++) {
        const uint8_t place = bus::sender_place(process);
        EXPECT_EQ(place, process);
        bus::sender_add(place);
    }
    EXPECT_EQ(bus::sender_place(1000), 0);
    bus::sender_add(0);
    EXPECT_EQ(bus::sender_pending(1000), 1u) << "all of these have one limit together";
    EXPECT_EQ(bus::sender_pending(5), 1u);
    bus::sender_remove(7);
    EXPECT_EQ(bus::sender_pending(1000), 0u);
    EXPECT_EQ(bus::sender_place(1000), 7);
    EXPECT_EQ(bus::sender_place(5), 5);
}

} // namespace

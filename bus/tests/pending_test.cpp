// SPDX-License-Identifier: MIT
// Requests that wait for an answer: found by their serial, and by no other.
#include "base/limits.h"
#include "calls/pending.h"
#include "calls/request.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

class PendingRequests : public testing::Test {
protected:
    ~PendingRequests() override {
        while (pending.requests.first != nullptr)
            pending_remove(pending, pending.requests.first);
        pending_end(pending);
    }
    request_t *add() {
        made.push_back(std::make_unique<request_t>());
        request_t *r = made.back().get();
        EXPECT_EQ(pending_reserve(pending, r->serial), nullptr);
        pending_add(pending, r);
        return r;
    }

    bus::Pending pending = {};
    std::vector<std::unique_ptr<request_t>> made;
};

TEST_F(PendingRequests, AreFoundByTheirSerial) {
    EXPECT_EQ(pending_find(pending, 1), nullptr) << "there is none yet";
    for (int i = 0; i < 1000; i++)
        add();
    for (const auto &r : made)
        EXPECT_EQ(pending_find(pending, r->serial), r.get());
    EXPECT_EQ(made.front()->serial, 1u);
    EXPECT_EQ(made.back()->serial, 1000u);
    EXPECT_EQ(pending_find(pending, 0), nullptr);
    EXPECT_EQ(pending_find(pending, 1001), nullptr);
}

TEST_F(PendingRequests, ASerialThatStandsAtTheSamePlaceIsAnother) {
    request_t *r = add();
    EXPECT_EQ(pending_find(pending, r->serial + pending.place_count), nullptr);
    EXPECT_EQ(pending_find(pending, r->serial + 0x80000000u), nullptr);
    pending_remove(pending, r);
    EXPECT_EQ(pending_find(pending, r->serial), nullptr) << "answered";
}

TEST_F(PendingRequests, NoSerialIsGivenTwiceWhileOneHasIt) {
    request_t *old = add();
    const uint32_t serial = old->serial;
    for (uint32_t i = 0; i < 100; i++) {
        request_t *r = add();
        EXPECT_NE(r->serial & (pending.place_count - 1), serial & (pending.place_count - 1));
        pending_remove(pending, r);
    }
    EXPECT_EQ(pending_find(pending, serial), old);
}

TEST_F(PendingRequests, SerialsBeginAgainBehindTheLastNumberAndAreNeverZero) {
    pending.last_serial = UINT32_MAX - 1;
    EXPECT_EQ(add()->serial, UINT32_MAX);
    EXPECT_EQ(add()->serial, 1u);
}

TEST_F(PendingRequests, FourThousandAndNinetySixAndNoMore) {
    for (uint32_t i = 0; i < 4096; i++)
        add();
    uint32_t serial = 0;
    EXPECT_STREQ(pending_reserve(pending, serial), "too many requests wait for its answers");
    EXPECT_EQ(serial, 0u);
    EXPECT_LE(pending.place_count, 8192u);
    pending_remove(pending, made[7].get());
    const request_t *r = add();
    EXPECT_EQ(pending_find(pending, r->serial), r);
}

} // namespace

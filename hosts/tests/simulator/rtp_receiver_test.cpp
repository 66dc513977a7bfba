// SPDX-License-Identifier: MIT
// Which packets belong to a stream, and what is counted of it.
#include "rtp_receiver.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

namespace {

rtp_packet packet_of(uint16_t sequence, uint32_t timestamp, uint32_t ssrc = 7) {
    rtp_packet packet = {};
    packet.sequence = sequence;
    packet.timestamp = timestamp;
    packet.ssrc = ssrc;
    packet.bytes = 160;
    return packet;
}

// A letter for each packet: next, anew, twice, doubtful.
std::string places(rtp_receiver *receiver, std::initializer_list<uint16_t> sequences, uint32_t ssrc = 7) {
    std::string text;
    for (uint16_t sequence : sequences) {
        const rtp_packet packet = packet_of(sequence, 0, ssrc);
        text += "NATD"[rtp_receive(receiver, &packet, 0)];
    }
    return text;
}

} // namespace

TEST(RtpReceive, LostAreThoseThatSequenceNumbersMiss) {
    rtp_receiver receiver = {};
    for (uint16_t sequence : {65533, 65534, 0, 1, 4}) { // 65535, 2 and 3 are missing
        rtp_packet packet = packet_of(sequence, 0);
        rtp_receive(&receiver, &packet, 0);
    }
    EXPECT_EQ(receiver.packets, 5u);
    EXPECT_EQ(receiver.bytes, 800u);
    EXPECT_EQ(rtp_lost(&receiver), 3u);
    rtp_packet late = packet_of(3, 0);
    rtp_receive(&receiver, &late, 0);
    EXPECT_EQ(rtp_lost(&receiver), 2u) << "late is not lost";
}

TEST(RtpReceive, DiscardedIsNotLost) {
    rtp_receiver receiver = {};
    rtp_packet early = packet_of(9, 0);
    rtp_discard(&receiver, &early);
    EXPECT_FALSE(receiver.started) << "nothing to compare with yet";
    for (uint16_t sequence : {10, 11, 14}) { // 13 is missing
        rtp_packet packet = packet_of(sequence, 0);
        rtp_receive(&receiver, &packet, 0);
    }
    for (uint16_t sequence : {12, 15}) {
        rtp_packet packet = packet_of(sequence, 0);
        rtp_discard(&receiver, &packet);
    }
    rtp_packet strange = packet_of(40000, 0, 99);
    rtp_discard(&receiver, &strange);
    EXPECT_EQ(rtp_lost(&receiver), 1u);
    EXPECT_EQ(receiver.packets, 3u);
    EXPECT_EQ(receiver.bytes, 480u);
}

TEST(RtpReceive, DuplicatesNeverMakeLessThanNoneLost) {
    rtp_receiver receiver = {};
    for (int i = 0; i < 3; i++) {
        rtp_packet packet = packet_of(10, 0);
        rtp_receive(&receiver, &packet, 0);
    }
    EXPECT_EQ(rtp_lost(&receiver), 0u);
}

TEST(RtpReceive, AnotherSourceStartsItsOwnNumbersWithItsSecondInARow) {
    rtp_receiver receiver = {};
    EXPECT_EQ(places(&receiver, {1, 3}, 7), "AN");
    EXPECT_EQ(places(&receiver, {40000, 40001, 40002}, 8), "DAN");
    EXPECT_EQ(rtp_lost(&receiver), 1u) << "what the first source lost; the packet that was doubted has come";
    EXPECT_EQ(receiver.packets, 4u);
    EXPECT_EQ(receiver.ssrc, 8u);
}

TEST(RtpReceive, SixtyFourSourcesInTurnDoNotEndTheFirst) {
    rtp_receiver receiver = {};
    EXPECT_EQ(places(&receiver, {1}, 7), "A");
    for (uint32_t source = 100; source < 164; source++)
        EXPECT_EQ(places(&receiver, {static_cast<uint16_t>(source * 9)}, source), "D");
    EXPECT_EQ(places(&receiver, {2}, 7), "N");
    EXPECT_EQ(receiver.packets, 2u);
    EXPECT_EQ(rtp_lost(&receiver), 0u);
}

// RFC 3550 A.1.
TEST(RtpReceive, ASourceThatBeginsItsNumbersAnewLosesNothing) {
    rtp_receiver receiver = {};
    for (uint16_t sequence = 10; sequence < 60; sequence++)
        places(&receiver, {sequence});
    EXPECT_EQ(places(&receiver, {25600, 25601, 25602}), "DAN");
    EXPECT_EQ(rtp_lost(&receiver), 0u);
    EXPECT_EQ(places(&receiver, {40000, 25603, 41000}), "DND") << "one that jumps alone changes nothing";
    EXPECT_EQ(rtp_lost(&receiver), 0u);
    EXPECT_EQ(receiver.packets, 53u);
}

TEST(RtpReceive, JumpsAreNearUpToTheStandardsDropoutAndMisorder) {
    const struct {
        int jump;
        const char *place;
    } rows[] = {{1, "N"},   {2, "N"},    {2999, "N"}, {3000, "D"}, {32768, "D"},
                {-99, "N"}, {-100, "N"}, {-101, "D"}, {0, "T"}};
    for (const auto &row : rows) {
        rtp_receiver receiver = {};
        places(&receiver, {65530});
        EXPECT_EQ(places(&receiver, {static_cast<uint16_t>(65530 + row.jump)}), row.place) << row.jump;
    }
}

TEST(RtpReceive, ANumberIsTwiceOnlyWhenItWasThere) {
    rtp_receiver receiver = {};
    EXPECT_EQ(places(&receiver, {65534, 65535, 65535, 2, 0, 0, 1, 65534}), "ANTNNTNT");
    EXPECT_EQ(receiver.duplicates, 3u);
    EXPECT_EQ(receiver.packets, 8u);
    EXPECT_EQ(rtp_lost(&receiver), 0u);
    EXPECT_EQ(places(&receiver, {1002, 1001, 1002}), "NNT") << "numbers long gone by are forgotten";
}

// RFC 3550 A.3: duplicates count as received there, so that less than none can be lost.
TEST(RtpReceive, ReportsCountDuplicatesAndStatisticsDoNot) {
    rtp_receiver receiver = {};
    places(&receiver, {1, 1, 1, 4});
    EXPECT_EQ(rtp_lost(&receiver), 2u);
    EXPECT_EQ(rtp_lost_of_source(&receiver), 0);
    EXPECT_EQ(rtp_take_fraction(&receiver), 0);
    places(&receiver, {8}); // four expected, one came
    EXPECT_EQ(rtp_take_fraction(&receiver), 192);
    EXPECT_EQ(rtp_take_fraction(&receiver), 0) << "since it was asked last";
    EXPECT_EQ(rtp_highest(&receiver), 8u);
}

TEST(RtpReceive, AJumpOfTheSendersTimeIsNoJitter) {
    rtp_receiver receiver = {};
    rtp_packet packet = packet_of(1, 0);
    rtp_receive(&receiver, &packet, 0);
    packet = packet_of(2, 3000000);
    rtp_receive(&receiver, &packet, 160);
    packet = packet_of(3, 3000160);
    rtp_receive(&receiver, &packet, 320);
    EXPECT_EQ(receiver.peak_jitter, 0u);
}

// RFC 3550 A.8: J += (|D| - J) / 16, kept sixteen-fold and rounded.
TEST(RtpReceive, JitterFollowsTheStandardsFormula) {
    rtp_receiver receiver = {};
    uint32_t arrival = 1000;
    for (int i = 0; i < 3; i++) {
        rtp_packet packet = packet_of(static_cast<uint16_t>(i), static_cast<uint32_t>(i) * 160);
        rtp_receive(&receiver, &packet, arrival);
        arrival += 160;
    }
    EXPECT_EQ(rtp_jitter(&receiver), 0u) << "in step";
    rtp_packet late = packet_of(3, 480);
    rtp_receive(&receiver, &late, arrival + 320); // 320 units late: 320 / 16
    EXPECT_EQ(rtp_jitter(&receiver), 20u);
    EXPECT_EQ(receiver.peak_jitter, 20u);
}

// By the order of arrival (RFC 3550 6.4.1): 308 sixteenths are left of 320 behind an arrival 8 units later.
TEST(RtpReceive, APacketThatComesTwiceCountsForTheJitter) {
    rtp_receiver receiver = {};
    rtp_packet packet = packet_of(0, 0);
    rtp_receive(&receiver, &packet, 1000);
    packet = packet_of(1, 160);
    rtp_receive(&receiver, &packet, 1480); // 320 units late
    ASSERT_EQ(rtp_jitter(&receiver), 20u);
    EXPECT_EQ(rtp_receive(&receiver, &packet, 1488), RTP_TWICE);
    EXPECT_EQ(rtp_jitter(&receiver), 19u);
    EXPECT_EQ(receiver.peak_jitter, 20u);
}

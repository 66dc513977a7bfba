// SPDX-License-Identifier: MIT
#include "rtp.h"

#include <gtest/gtest.h>

#include <string.h>
#include <vector>

namespace {

rtp_packet packet_of(uint16_t sequence, uint32_t timestamp, uint32_t ssrc = 7) {
    rtp_packet packet = {};
    packet.sequence = sequence;
    packet.timestamp = timestamp;
    packet.ssrc = ssrc;
    packet.bytes = 160;
    return packet;
}

} // namespace

TEST(RtpWrite, HeadIsThatOfTheStandard) {
    rtp_sender sender = {};
    sender.ssrc = 0x01020304;
    sender.timestamp = 0x0A0B0C0D;
    sender.sequence = 0xFFFF;
    const uint8_t payload[3] = {0x11, 0x22, 0x33};
    uint8_t packet[32];
    memset(packet, 0xEE, sizeof packet);
    ASSERT_EQ(rtp_write(&sender, 8, payload, sizeof payload, 160, packet, sizeof packet), 15u);
    const uint8_t expected[] = {0x80, 0x88, 0xFF, 0xFF, 0x0A, 0x0B, 0x0C, 0x0D,
                                0x01, 0x02, 0x03, 0x04, 0x11, 0x22, 0x33, 0xEE};
    EXPECT_EQ(memcmp(packet, expected, sizeof expected), 0);
    ASSERT_EQ(rtp_write(&sender, 8, payload, sizeof payload, 160, packet, sizeof packet), 15u);
    EXPECT_EQ(packet[1], 0x08) << "the marker stands at the start of a talkspurt only";
    EXPECT_EQ(packet[2] << 8 | packet[3], 0) << "the sequence number wraps";
    EXPECT_EQ(sender.timestamp, 0x0A0B0C0Du + 320);
    EXPECT_EQ(sender.packets, 2u);
    EXPECT_EQ(sender.bytes, 6u);
}

TEST(RtpWrite, WhatDoesNotFitIsNotWritten) {
    rtp_sender sender = {};
    const uint8_t payload[4] = {};
    uint8_t packet[16];
    EXPECT_EQ(rtp_write(&sender, 8, payload, 4, 160, packet, 15), 0u);
    EXPECT_EQ(rtp_write(&sender, 8, payload, 4, 160, packet, 11), 0u);
    EXPECT_EQ(sender.packets, 0u);
    EXPECT_EQ(rtp_write(&sender, 8, payload, 4, 160, packet, 16), 16u);
}

TEST(RtpRead, PassesOverSourcesExtensionAndPadding) {
    const std::vector<uint8_t> bytes = {
        0xB1, 0x88, 0x00, 0x05, 0, 0, 0, 1, 0, 0, 0, 2, // padding, extension, one source
        9,    9,    9,    9,    0, 0, 0, 1, 1, 2, 3, 4, // the source; an extension word
        0xAA, 0xBB, 0,    2};
    rtp_packet packet;
    ASSERT_TRUE(rtp_read(bytes.data(), bytes.size(), &packet));
    EXPECT_TRUE(packet.marker);
    EXPECT_EQ(packet.payload_type, 8);
    EXPECT_EQ(packet.sequence, 5);
    EXPECT_EQ(packet.ssrc, 2u);
    ASSERT_EQ(packet.bytes, 2u);
    EXPECT_EQ(packet.payload[0], 0xAA);
}

TEST(RtpRead, EveryCutIsRefused) {
    const std::vector<uint8_t> whole = {0x91, 0x88, 0, 5, 0, 0, 0, 1, 0, 0, 0, 2, 9, 9, 9, 9, 0, 0, 0, 1, 1, 2, 3, 4};
    rtp_packet packet;
    ASSERT_TRUE(rtp_read(whole.data(), whole.size(), &packet));
    EXPECT_EQ(packet.bytes, 0u);
    for (size_t size = 0; size < whole.size(); size++) {
        std::vector<uint8_t> cut(whole.begin(),
                                 whole.begin() + static_cast<long>(size)); // its own block: a read past it shows
        EXPECT_FALSE(rtp_read(cut.data(), cut.size(), &packet)) << size << " bytes";
    }
}

TEST(RtpRead, WrongVersionAndPaddingAreRefused) {
    std::vector<uint8_t> bytes(13, 0);
    rtp_packet packet;
    bytes[0] = 0x40;
    EXPECT_FALSE(rtp_read(bytes.data(), bytes.size(), &packet)) << "version 1";
    bytes[0] = 0xA0;
    bytes[12] = 2;
    EXPECT_FALSE(rtp_read(bytes.data(), bytes.size(), &packet)) << "more padding than payload";
    bytes[12] = 0;
    EXPECT_FALSE(rtp_read(bytes.data(), bytes.size(), &packet)) << "padding counts its own last byte";
    bytes[12] = 1;
    EXPECT_TRUE(rtp_read(bytes.data(), bytes.size(), &packet));
}

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

TEST(RtpReceive, AnotherSourceStartsItsOwnNumbers) {
    rtp_receiver receiver = {};
    for (uint16_t sequence : {1, 3}) {
        rtp_packet packet = packet_of(sequence, 0, 7);
        rtp_receive(&receiver, &packet, 0);
    }
    for (uint16_t sequence : {40000, 40001}) {
        rtp_packet packet = packet_of(sequence, 0, 8);
        rtp_receive(&receiver, &packet, 0);
    }
    EXPECT_EQ(rtp_lost(&receiver), 1u) << "what the first source lost";
    EXPECT_EQ(receiver.packets, 4u);
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

TEST(Rtcp, ReportIsWrittenAndRead) {
    rtp_sender sender = {};
    sender.ssrc = 0x01020304;
    sender.packets = 5;
    sender.bytes = 800;
    rtp_receiver receiver = {};
    uint8_t packet[128];
    uint32_t size = rtcp_write_report(&sender, &receiver, 0x1122334455667788, "fxs1", packet, sizeof packet);
    ASSERT_EQ(size, 52u + 16u);
    const uint8_t head[] = {0x81, 200, 0, 12, 1, 2, 3, 4, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    EXPECT_EQ(memcmp(packet, head, sizeof head), 0);
    const uint8_t name[] = {0x81, 202, 0, 3, 1, 2, 3, 4, 1, 4, 'f', 'x', 's', '1', 0, 0};
    EXPECT_EQ(memcmp(packet + 52, name, sizeof name), 0);
    EXPECT_TRUE(rtcp_is_report(packet, size));
    for (uint32_t cut = 0; cut < size; cut++)
        EXPECT_EQ(rtcp_is_report(packet, cut), cut == 52) << cut << " bytes; the report alone is whole too";
    EXPECT_EQ(rtcp_write_report(&sender, &receiver, 0, "fxs1", packet, size - 1), 0u);
}

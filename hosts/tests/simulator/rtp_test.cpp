// SPDX-License-Identifier: MIT
#include "rtp.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <string.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

bool random_is_missing; // as right after a machine's start

} // namespace

// In place of the C library's.
extern "C" ssize_t getrandom(void *bytes, size_t size, unsigned flags) {
    if (!random_is_missing)
        return syscall(SYS_getrandom, bytes, size, flags);
    errno = EAGAIN;
    return -1;
}

TEST(RtpWrite, HeadIsThatOfTheStandard) {
    rtp_sender sender = {};
    sender.ssrc = 0x01020304;
    sender.origin = 0x0A0B0C0D - 1000;
    sender.sequence = 0xFFFF;
    const uint8_t payload[3] = {0x11, 0x22, 0x33};
    uint8_t packet[32];
    memset(packet, 0xEE, sizeof packet);
    ASSERT_EQ(rtp_write(&sender, 8, 1000, payload, sizeof payload, packet, sizeof packet), 15u);
    const uint8_t expected[] = {0x80, 0x88, 0xFF, 0xFF, 0x0A, 0x0B, 0x0C, 0x0D,
                                0x01, 0x02, 0x03, 0x04, 0x11, 0x22, 0x33, 0xEE};
    EXPECT_EQ(memcmp(packet, expected, sizeof expected), 0);
    ASSERT_EQ(rtp_write(&sender, 8, 1160, payload, sizeof payload, packet, sizeof packet), 15u);
    EXPECT_EQ(packet[1], 0x08) << "the marker stands at the start of a talkspurt only";
    EXPECT_EQ(packet[2] << 8 | packet[3], 0) << "the sequence number wraps";
    EXPECT_EQ(packet[7], 0x0D + 160) << "RTP time is that of the samples";
    EXPECT_EQ(sender.packets, 2u);
    EXPECT_EQ(sender.bytes, 6u);
}

TEST(RtpWrite, WhatDoesNotFitIsNotWritten) {
    rtp_sender sender = {};
    const uint8_t payload[4] = {};
    uint8_t packet[16];
    EXPECT_EQ(rtp_write(&sender, 8, 0, payload, 4, packet, 15), 0u);
    EXPECT_EQ(rtp_write(&sender, 8, 0, payload, 4, packet, 11), 0u);
    EXPECT_EQ(sender.packets, 0u);
    EXPECT_EQ(rtp_write(&sender, 8, 0, payload, 4, packet, 16), 16u);
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

TEST(RtpSender, NoTwoHaveTheSameIdentifierEvenWithoutRandomNumbers) {
    rtp_sender one, other;
    random_is_missing = true;
    rtp_sender_start(&one);
    usleep(1);
    rtp_sender_start(&other);
    random_is_missing = false;
    EXPECT_NE(one.ssrc, other.ssrc);
}

TEST(RtpSender, TimeGoesByTheSamplingClockWhateverIsSent) {
    rtp_sender sender;
    rtp_sender_start(&sender);
    const uint32_t begin = rtp_time(&sender, 0);
    const uint8_t payload[160] = {};
    uint8_t packet[172];
    for (uint64_t sample : {uint64_t{0}, uint64_t{41200}, uint64_t{1} << 32}) { // 5.15 s of hold; a wrap
        ASSERT_EQ(rtp_write(&sender, 8, sample, payload, sizeof payload, packet, sizeof packet), sizeof packet);
        rtp_packet read;
        ASSERT_TRUE(rtp_read(packet, sizeof packet, &read));
        EXPECT_EQ(read.timestamp, begin + static_cast<uint32_t>(sample));
    }
}

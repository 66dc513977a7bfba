// SPDX-License-Identifier: MIT
// RTCP, byte by byte (RFC 3550 6.4 to 6.6).
#include "rtcp.h"

#include <gtest/gtest.h>

#include <string.h>
#include <string>
#include <vector>

namespace {

class Rtcp : public testing::Test {
protected:
    Rtcp() {
        sender_.ssrc = 0x01020304;
        sender_.packets = 5;
        sender_.bytes = 800;
    }
    void receive(uint16_t sequence) {
        rtp_packet packet = {};
        packet.sequence = sequence;
        packet.ssrc = 0x0A0B0C0D;
        rtp_receive(&receiver_, &packet, 0);
    }
    std::vector<uint8_t> write(bool sends, bool leaves = false, uint64_t ntp_time = 0x1122334455667788,
                               const char *name = "1.fxs1@127.0.0.1") {
        uint8_t packet[256];
        const rtcp_report report = {&sender_, &receiver_, &far_end_, sends, ntp_time, 0x99AABBCC, name, leaves};
        return {packet, packet + rtcp_write(&report, packet, sizeof packet)};
    }
    static std::vector<uint8_t> part(const std::vector<uint8_t> &packet, size_t from, size_t count) {
        return {packet.begin() + static_cast<long>(from), packet.begin() + static_cast<long>(from + count)};
    }

    rtp_sender sender_ = {};
    rtp_receiver receiver_ = {};
    rtcp_far_end far_end_ = {};
};

using Bytes = std::vector<uint8_t>;

} // namespace

TEST_F(Rtcp, ASenderReportIsThatOfTheStandard) {
    receive(100);
    receive(103);
    const Bytes packet = write(true);
    ASSERT_EQ(packet.size(), 52u + 28u);
    EXPECT_EQ(part(packet, 0, 28),
              (Bytes{0x81, 200,  0,    12,   1,    2,    3, 4, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66,
                     0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0, 0, 0,    5,    0,    0,    3,    0x20}));
    EXPECT_EQ(part(packet, 28, 24),
              (Bytes{0x0A, 0x0B, 0x0C, 0x0D, 128, 0, 0, 2, 0, 0, 0, 103, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(part(packet, 52, 10), (Bytes{0x81, 202, 0, 6, 1, 2, 3, 4, 1, 16}));
    EXPECT_EQ(memcmp(packet.data() + 62, "1.fxs1@127.0.0.1\0\0", 18), 0);
}

TEST_F(Rtcp, WhoSendsNothingReportsWhatHeReceives) {
    Bytes packet = write(false);
    EXPECT_EQ(part(packet, 0, 8), (Bytes{0x80, 201, 0, 1, 1, 2, 3, 4})) << "nothing came either";
    receive(1);
    packet = write(false);
    EXPECT_EQ(part(packet, 0, 12), (Bytes{0x81, 201, 0, 7, 1, 2, 3, 4, 0x0A, 0x0B, 0x0C, 0x0D}));
}

TEST_F(Rtcp, AFarewellStandsAtTheEnd) {
    const Bytes packet = write(false, true);
    EXPECT_EQ(part(packet, packet.size() - 8, 8), (Bytes{0x81, 203, 0, 1, 1, 2, 3, 4}));
    EXPECT_TRUE(rtcp_read(&far_end_, 1, 0, packet.data(), packet.size()));
    EXPECT_TRUE(far_end_.left);
}

// LSR and DLSR of 6.4.1, and the round trip that the other end makes of them.
TEST_F(Rtcp, TheRoundTripIsTheTimeThatNeitherEndHeldTheReport) {
    const uint64_t second = uint64_t{1} << 32;
    receive(1);
    const Bytes first = write(true, false, 1000 * second); // we send at 1,000 s
    {
        rtp_sender other = {};
        other.ssrc = 0x0A0B0C0D;
        rtp_receiver from_us = {};
        rtp_packet packet = {};
        packet.ssrc = sender_.ssrc;
        rtp_receive(&from_us, &packet, 0);
        rtcp_far_end us = {};
        // It arrives when their clock says 5 s, and is answered 2.5 s later.
        ASSERT_TRUE(rtcp_read(&us, other.ssrc, 5 * second, first.data(), first.size()));
        EXPECT_TRUE(us.reported);
        uint8_t answer[256];
        const rtcp_report report = {&other, &from_us, &us, true, 7 * second + second / 2, 0, "b", false};
        const uint32_t size = rtcp_write(&report, answer, sizeof answer);
        EXPECT_EQ(Bytes(answer + 44, answer + 52), (Bytes{0x03, 0xE8, 0, 0, 0, 2, 0x80, 0}));
        // 250 ms on the way, both ways together.
        ASSERT_TRUE(rtcp_read(&far_end_, sender_.ssrc, 1002 * second + 3 * (second / 4), answer, size));
    }
    EXPECT_TRUE(far_end_.measured);
    EXPECT_EQ(far_end_.round_trip, 65536u / 4);
    EXPECT_EQ(far_end_.longest_trip, 65536u / 4);
}

// RFC 3550 6.4.1: the last report is that of the source which the block is about, or none.
TEST_F(Rtcp, TheLastReportIsThatOfTheSourceThatIsHeard) {
    receive(1);
    for (uint32_t source : {0x55u, 0x0A0B0C0Du}) {
        rtp_sender other = {};
        other.ssrc = source;
        rtp_receiver nobody = {};
        rtcp_far_end unknown = {};
        uint8_t packet[256];
        const rtcp_report report = {&other, &nobody, &unknown, true, uint64_t{1000} << 32, 0, "b", false};
        const uint32_t size = rtcp_write(&report, packet, sizeof packet);
        ASSERT_TRUE(rtcp_read(&far_end_, sender_.ssrc, uint64_t{5} << 32, packet, size));
        const Bytes answer = part(write(true, false, uint64_t{7} << 32), 44, 8);
        EXPECT_EQ(answer, source == 0x55 ? Bytes(8, 0) : (Bytes{0x03, 0xE8, 0, 0, 0, 2, 0, 0})) << source;
    }
}

TEST_F(Rtcp, ReportsOnOthersAndWrongTimesMeasureNothing) {
    receive(1);
    far_end_.reported = true;
    far_end_.last_report = 1000 << 16;
    far_end_.source = 0x0A0B0C0D;
    const Bytes packet = write(true);
    rtcp_far_end other = {};
    EXPECT_TRUE(rtcp_read(&other, 0x55, uint64_t{1001} << 32, packet.data(), packet.size()));
    EXPECT_FALSE(other.measured) << "about another source";
    EXPECT_TRUE(rtcp_read(&other, 0x0A0B0C0D, uint64_t{999} << 32, packet.data(), packet.size()));
    EXPECT_FALSE(other.measured) << "less than no time";
}

TEST_F(Rtcp, EveryCutIsRefusedButThatBetweenPackets) {
    receive(1);
    const Bytes whole = write(true, true);
    for (size_t size = 0; size < whole.size(); size++) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<long>(size)); // its own block: a read past it shows
        rtcp_far_end nobody = {};
        EXPECT_EQ(rtcp_read(&nobody, sender_.ssrc, 0, cut.data(), cut.size()), size == 52 || size == 80) << size;
    }
}

// Every length that a datagram can have, with heads that promise more blocks than there are.
TEST_F(Rtcp, EveryLengthIsReadWithinItsBytes) {
    for (size_t size = 0; size <= 1500; size++) {
        Bytes bytes(size, 0x9F); // version 2, 31 blocks
        for (size_t type : {200, 201, 203})
            if (size >= 4) {
                bytes[1] = static_cast<uint8_t>(type);
                bytes[2] = static_cast<uint8_t>((size / 4 - 1) >> 8);
                bytes[3] = static_cast<uint8_t>(size / 4 - 1);
                rtcp_far_end nobody = {};
                EXPECT_EQ(rtcp_read(&nobody, 0x9F9F9F9F, 0, bytes.data(), size),
                          size % 4 == 0 && size >= 8 && type != 203)
                    << size;
            }
    }
}

TEST_F(Rtcp, WhatDoesNotFitIsNotWritten) {
    uint8_t packet[256];
    rtcp_report report = {&sender_, &receiver_, &far_end_, true, 0, 0, "fxs1", true};
    const uint32_t size = rtcp_write(&report, packet, sizeof packet);
    EXPECT_EQ(size, 28u + 16u + 8u);
    EXPECT_EQ(rtcp_write(&report, packet, size - 1), 0u);
    const std::string name(256, 'n');
    report.name = name.c_str();
    EXPECT_EQ(rtcp_write(&report, packet, sizeof packet), 0u);
}

// SPDX-License-Identifier: MIT
// A call from one end to the other: what is heard, what is sent, what is reported.
#include "session_fixture.h"

// 20 ms to fill a packet, 40 ms to wait.
TEST_F(Session, FromMouthToEarPassSixtyMilliseconds) {
    open();
    const auto begin = static_cast<uint32_t>(sampling_clock_position());
    run(1000);
    for (uint32_t i = 60 * 8; i < 8000; i++)
        ASSERT_NEAR(ends[0].heard[i], voice_at(begin + i - 60 * 8), 300) << i;
    EXPECT_EQ(counts(0).tx_packets, 50u);
    EXPECT_EQ(counts(0).rx_packets, 50u);
    EXPECT_EQ(counts(0).concealed_ms + counts(0).lost + counts(0).discarded, 0u);
}

TEST_F(Session, PacketsOfTenTwentyAndThirtyMillisecondsAreSentAndHeard) {
    for (uint32_t ptime : {10u, 20u, 30u}) {
        line_media_t media = kAlaw;
        media.ptime_ms = ptime;
        passed_[0].clear();
        open(media);
        run(600);
        EXPECT_TRUE(hears(1)) << ptime;
        ASSERT_EQ(passed_[0].size(), 600 / ptime) << ptime;
        for (size_t i = 0; i < passed_[0].size(); i++) {
            EXPECT_EQ(parsed(passed_[0][i]).bytes, ptime * 8);
            EXPECT_EQ(parsed(passed_[0][i]).timestamp, parsed(passed_[0][0]).timestamp + i * ptime * 8) << ptime;
            EXPECT_EQ(parsed(passed_[0][i]).sequence, static_cast<uint16_t>(parsed(passed_[0][0]).sequence + i));
        }
        EXPECT_EQ(counts(1).discarded + counts(1).lost + counts(1).concealed_ms, 0u) << ptime;
        for (End &end : ends) {
            close(dup(end.session.media.media)); // the pair's other end stays
            session_close(&end.session);
        }
        for (int end = 0; end < 2; end++) {
            close(media_[end][1]);
            close(control_[end][1]);
            make_udp_pair(media_[end]);
            make_udp_pair(control_[end]);
        }
    }
}

// RTP time goes by the sampling clock, and there is no jitter where the network has none.
TEST_F(Session, AHoldMovesRtpTimeAndNothingElse) {
    open();
    run(500);
    change(0, VOICE_MODE_INACTIVE);
    change(1, VOICE_MODE_INACTIVE);
    run(5150);
    change(0, VOICE_MODE_SEND_RECEIVE);
    change(1, VOICE_MODE_SEND_RECEIVE);
    const size_t before = passed_[0].size();
    run(500);
    const rtp_packet last = parsed(passed_[0][before - 1]), next = parsed(passed_[0][before]);
    EXPECT_EQ(next.timestamp - last.timestamp, (5150 + 20) * 8u);
    EXPECT_EQ(next.sequence, static_cast<uint16_t>(last.sequence + 1));
    EXPECT_TRUE(next.marker) << "a talkspurt begins";
    EXPECT_EQ(counts(1).peak_jitter, 0u);
    EXPECT_EQ(counts(1).late, 0u);
    EXPECT_TRUE(hears(1));
}

// The other end may be told first, and its first packet come before a step of our own.
TEST_F(Session, TheFirstPacketBehindAHoldIsHeard) {
    open();
    run(500);
    change(0, VOICE_MODE_INACTIVE);
    change(1, VOICE_MODE_INACTIVE);
    run(5150);
    change(0, VOICE_MODE_SEND_RECEIVE);
    now_ns += 20 * kMs;
    sampling_clock_advance();
    change(1, VOICE_MODE_SEND_RECEIVE);
    const uint32_t before = counts(1).rx_packets;
    pass();
    EXPECT_EQ(counts(1).rx_packets, before + 1);
    EXPECT_EQ(counts(1).discarded, 0u);
    run(60);
    EXPECT_TRUE(hears(1, 10));
}

TEST_F(Session, AStopOfTheProcessSendsNoBurstAndLeavesNoDelay) {
    for (uint64_t stop : {100, 1000, 30000}) {
        open();
        run(500);
        const rtp_packet last = parsed(passed_[0].back());
        const size_t before = passed_[0].size();
        now_ns += stop * kMs;
        sampling_clock_advance();
        EXPECT_LE(receive_all(media_[0][1]).size(), 2u) << stop;
        run(500);
        const rtp_packet next = parsed(passed_[0][before]);
        EXPECT_EQ(static_cast<uint16_t>(next.sequence - last.sequence),
                  (next.timestamp - last.timestamp) / 160 - stop / 20 + 1)
            << stop << ": no number is left out for what was not sent";
        EXPECT_EQ(counts(1).peak_jitter, 0u) << stop;
        EXPECT_TRUE(hears(1)) << stop;
        const uint32_t mean = counts(1).buffer_mean_ms;
        EXPECT_NEAR(mean, 40, 1) << stop;
        TearDown();
        SetUp();
        passed_[0].clear();
    }
}

TEST_F(Session, ReportsSayWhoTheyAreOfAndWhatCame) {
    open();
    run(2500);
    for (int end = 0; end < 2; end++) {
        ASSERT_EQ(reports_[end].size(), 1u) << "after half the interval";
        const Packet &report = reports_[end][0];
        EXPECT_EQ(report[1], 200) << "who sends reports what it sends";
        const std::string text(report.begin(), report.end());
        EXPECT_NE(text.find(end == 0 ? "1.fxs1@127.0.0.1" : "2.fxs1@127.0.0.1"), std::string::npos);
        EXPECT_EQ(get32(report.data() + 4), parsed(passed_[end][0]).ssrc);
        EXPECT_EQ(get32(report.data() + 16), parsed(passed_[end].back()).timestamp + 160) << "RTP time now";
        EXPECT_EQ(get32(report.data() + 28), parsed(passed_[1 - end][0]).ssrc);
    }
    run(5000);
    for (int end = 0; end < 2; end++) {
        ASSERT_EQ(reports_[end].size(), 2u);
        const uint8_t *before = reports_[end][0].data(), *report = reports_[end][1].data();
        EXPECT_EQ(get32(report + 16) - get32(before + 16), 40000u);
        const uint64_t passed = (uint64_t{get32(report + 8)} << 32 | get32(report + 12)) -
                                (uint64_t{get32(before + 8)} << 32 | get32(before + 12));
        EXPECT_NEAR(static_cast<double>(passed) / 4294967296.0, 5, 1e-6) << "both clocks in step";
        EXPECT_NE(get32(report + 44), 0u) << "the last report of the other end";
        EXPECT_NEAR(get32(report + 48), 5 * 65536, 66) << "which came 5 s ago";
    }
    EXPECT_EQ(counts(0).rx_reports, 2u);
    EXPECT_EQ(counts(0).round_trip_ms, 1u) << "measured, and less than a millisecond";
}

TEST_F(Session, WhoSendsNothingSaysSoAndWhoLeavesTakesLeave) {
    open();
    change(1, VOICE_MODE_RECEIVE_ONLY);
    run(2500);
    EXPECT_EQ(reports_[0][0][1], 200);
    EXPECT_EQ(reports_[1][0][1], 201) << "a receiver report";
    change(0, VOICE_MODE_INACTIVE);
    run(10000);
    EXPECT_EQ(reports_[0][1][1], 200) << "it sent since the report before the last";
    EXPECT_EQ(reports_[0][2][1], 201);
    session_close(&ends[0].session);
    const Packet last = receive_all(control_[0][1]).at(0);
    EXPECT_EQ(last[1], 201);
    EXPECT_EQ(last[last.size() - 7], 203) << "BYE";
}

TEST_F(Session, WhoNeverSaidAnythingTakesNoLeave) {
    open();
    run(100);
    line_media_t media = kAlaw;
    media.mode = VOICE_MODE_INACTIVE;
    session_close(&ends[0].session);
    receive_all(control_[0][1]);
    int pair[2], control[2];
    make_udp_pair(pair);
    make_udp_pair(control);
    media.media = pair[0];
    media.control = control[0];
    ASSERT_EQ(session_open(&ends[0].session, "1", &kJitterSettings, &media), nullptr);
    session_close(&ends[0].session);
    EXPECT_EQ(receive_all(control[1]).size(), 0u) << "RFC 3550 6.3.7";
    close(pair[1]);
    close(control[1]);
}

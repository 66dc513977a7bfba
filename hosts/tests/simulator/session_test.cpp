// SPDX-License-Identifier: MIT
// Two ends of a call over real sockets, on a clock of the test's own.
#include "session.h"

#include "kex_host.h"
#include "network_order.h"
#include "udp_pair.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <poll.h>
#include <string.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr uint64_t kMs = 1000000;
uint64_t now_ns;

uint64_t the_time() {
    return now_ns;
}

// One end, and what is heard there.
struct End {
    media_session session;
    std::vector<int16_t> heard;
    uint32_t said;
};

End ends[2];

int16_t voice_at(uint32_t sample) {
    return static_cast<int16_t>(6000 * std::sin(6.283185307179586 * 400 * (sample % kSampleRate) / kSampleRate));
}

void step(uint64_t position) {
    for (End &end : ends) {
        if (!end.session.open)
            continue;
        int16_t samples[kStepSamples] = {};
        if (session_receives(&end.session)) {
            session_take(&end.session, position, samples);
            end.heard.insert(end.heard.end(), samples, samples + kStepSamples);
        }
        for (uint32_t i = 0; i < kStepSamples; i++)
            samples[i] = voice_at(static_cast<uint32_t>(position) + i);
        if (session_sends(&end.session))
            session_send(&end.session, position, samples);
        session_tick(&end.session);
    }
}

void skip(uint64_t) {
    for (End &end : ends)
        if (end.session.open)
            session_skip(&end.session);
}

class Session : public testing::Test {
protected:
    static constexpr line_media_t kAlaw = {VOICE_MODE_SEND_RECEIVE, LIBVOICE_CODEC_PCMA, 8, 20, 0, 0, -1, -1};

    static void SetUpTestSuite() { bus_ = kex_create("session_test"); }
    static void TearDownTestSuite() { kex_destroy(bus_); }

    void SetUp() override {
        static constexpr sampling_listener kListener = {skip, step};
        sampling_clock_replace(the_time);
        sampling_clock_begin(bus_, &kListener);
        session_begin(bus_, "fxs1");
        sampling_clock_run(10);
        // Two pairs: between the ends stands the test, which sees each packet and passes it on, or does not.
        for (int end = 0; end < 2; end++) {
            make_udp_pair(media_[end]);
            make_udp_pair(control_[end]);
        }
        passed_[0].clear();
        passed_[1].clear();
    }
    void TearDown() override {
        for (End &end : ends)
            if (end.session.open)
                session_close(&end.session);
        for (int end = 0; end < 2; end++) {
            close(media_[end][1]);
            close(control_[end][1]);
        }
        sampling_clock_run(0);
        sampling_clock_replace(nullptr);
        kex_dispatch(bus_);
    }

    void open(line_media_t media = kAlaw) {
        for (int end = 0; end < 2; end++) {
            media.media = media_[end][0];
            media.control = control_[end][0];
            ends[end].heard.clear();
            ASSERT_EQ(session_open(&ends[end].session, end == 0 ? "1" : "2", &kJitterSettings, &media), nullptr);
        }
    }
    static void change(int end, uint32_t mode, uint32_t ptime_ms = 20) {
        line_media_t media = kAlaw;
        media.mode = mode;
        media.ptime_ms = ptime_ms;
        ASSERT_EQ(session_change(&ends[end].session, &media), nullptr);
    }
    using Packet = std::vector<uint8_t>;
    static std::vector<Packet> receive_all(int fd) {
        std::vector<Packet> packets;
        uint8_t bytes[2048];
        for (ssize_t size; (size = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT)) >= 0;)
            packets.emplace_back(bytes, bytes + size);
        return packets;
    }
    static void read_all() {
        while (kex_dispatch(bus_) > 0) {
        }
    }
    // Passes on what the ends have sent; and lets them read it.
    void pass() {
        for (int end = 0; end < 2; end++) {
            for (const Packet &packet : receive_all(media_[end][1])) {
                passed_[end].push_back(packet);
                send(media_[1 - end][1], packet.data(), packet.size(), 0);
            }
            for (const Packet &packet : receive_all(control_[end][1])) {
                reports_[end].push_back(packet);
                send(control_[1 - end][1], packet.data(), packet.size(), 0);
            }
        }
        read_all();
    }
    void run(uint64_t ms) {
        for (; ms > 0; ms -= 10) {
            now_ns += 10 * kMs;
            sampling_clock_advance();
            pass();
        }
    }
    static rtp_packet parsed(const Packet &bytes) {
        rtp_packet packet;
        EXPECT_TRUE(rtp_read(bytes.data(), bytes.size(), &packet));
        return packet;
    }
    static line_statistics_t counts(int end) { return session_statistics(&ends[end].session); }
    // Whether the last milliseconds sound: not silence.
    static bool hears(int end, size_t ms = 20) {
        const std::vector<int16_t> &heard = ends[end].heard;
        return std::any_of(heard.end() - static_cast<long>(ms * 8), heard.end(),
                           [](int16_t sample) { return std::abs(sample) > 3000; });
    }

    static inline kex_t *bus_;
    int media_[2][2], control_[2][2];
    std::vector<Packet> passed_[2], reports_[2];
};

} // namespace

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

// Of every length, from 0 to 1,500 bytes: three are sound, and what is not is counted.
TEST_F(Session, EveryLengthIsHeardOrDiscardedAndCounted) {
    open();
    uint32_t sound = 0;
    for (uint32_t size = 0; size <= 1500; size++) {
        Packet packet(size, 0xD5);
        if (size >= 12) {
            packet[0] = 0x80;
            packet[1] = 8;
            put16(packet.data() + 2, static_cast<uint16_t>(size));
            put32(packet.data() + 4, size * 160);
            put32(packet.data() + 8, 77);
        }
        sound += size == 92 || size == 172 || size == 252;
        send(media_[1][1], packet.data(), packet.size(), 0);
        if (size % 16 == 0)
            read_all();
    }
    read_all();
    EXPECT_EQ(counts(1).rx_packets, sound);
    EXPECT_EQ(counts(1).rx_packets + counts(1).discarded - counts(1).late - counts(1).overruns, 1501u);
    EXPECT_EQ(counts(1).lost, 0u) << "all of them came";
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

TEST_F(Session, ReportsOfEveryLengthCountOnlyWhenTheyAre) {
    open();
    for (uint32_t size = 0; size <= 1500; size++) {
        Packet packet(size, 0);
        for (uint32_t at = 0; at + 4 <= size; at += 4) { // bare heads, one behind the other
            packet[at] = 0x80;
            packet[at + 1] = 201;
        }
        send(control_[1][1], packet.data(), packet.size(), 0);
        if (size % 16 == 0)
            read_all();
    }
    read_all();
    EXPECT_EQ(counts(1).rx_reports, 1500 / 4 - 1u) << "whole words, and at least the source";
}

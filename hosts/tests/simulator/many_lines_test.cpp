// SPDX-License-Identifier: MIT
// As many lines as a plugin has, all of them in calls, on a clock of the test's own: they start together, and the process stops.
#include "audio.h"

#include "kex_host.h"
#include "udp_pair.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr uint32_t kLines = 32;
constexpr uint64_t kMs = 1000000;

class ManyLines : public testing::Test {
protected:
    static void SetUpTestSuite() {
        bus_ = kex_create("many_lines");
        sampling_clock_replace([] { return now_; });
        audio_begin(bus_, "many");
        for (uint32_t i = 0; i < kLines; i++)
            audio_start(&lines_[i], std::to_string(i).c_str(), 1000 + i % 2 * 1200, [](const audio *, const char *) {});
    }
    static void TearDownTestSuite() {
        sampling_clock_replace(nullptr);
        kex_destroy(bus_);
    }

    void SetUp() override {
        for (uint32_t i = 0; i < kLines; i += 2) {
            line_media_t media[2] = {kAlaw, kAlaw};
            int rtp[2], rtcp[2];
            make_udp_pair(rtp);
            make_udp_pair(rtcp);
            for (uint32_t end = 0; end < 2; end++) {
                media[end].media = rtp[end];
                media[end].control = rtcp[end];
                ASSERT_EQ(audio_open(&lines_[i + end], 0, &media[end]), nullptr);
            }
        }
    }
    void TearDown() override {
        for (audio &line : lines_)
            audio_close(&line, 0, nullptr);
    }
    static void pass(uint64_t ms) {
        now_ += ms * kMs;
        sampling_clock_advance();
        while (kex_dispatch(bus_) > 0) {
        }
    }
    static void run(uint32_t ms) {
        for (; ms > 0; ms -= 20)
            pass(20);
    }
    static void expect_voices(const std::string &when) {
        for (uint32_t i = 0; i < kLines; i++)
            EXPECT_STREQ(lines_[i].detector.said, i % 2 == 0 ? "2200Hz" : "1000Hz") << "line " << i << " " << when;
    }
    static line_statistics_t counts(uint32_t line) { return session_statistics(&lines_[line].sessions[0]); }

    static constexpr line_media_t kAlaw = {VOICE_MODE_SEND_RECEIVE, LIBVOICE_CODEC_PCMA, 8, 20, 0, 0, -1, -1};
    static inline kex_t *bus_;
    static inline uint64_t now_;
    static inline audio lines_[kLines];
};

} // namespace

TEST_F(ManyLines, AllAreHeardAndNoneLosesAPacket) {
    run(2000);
    expect_voices("after 2 s");
    for (uint32_t i = 0; i < kLines; i++) {
        EXPECT_EQ(counts(i).tx_packets, 100u) << i;
        EXPECT_EQ(counts(i).rx_packets, 100u) << i;
        EXPECT_EQ(counts(i).lost + counts(i).discarded + counts(i).concealed_ms, 0u) << i;
    }
}

TEST_F(ManyLines, AfterAStopAllGoOnWithoutABurst) {
    for (uint64_t stop : {100, 1000, 30000}) {
        run(1000);
        uint32_t before[kLines];
        for (uint32_t i = 0; i < kLines; i++)
            before[i] = counts(i).tx_packets;
        pass(stop);
        for (uint32_t i = 0; i < kLines; i++)
            EXPECT_LE(counts(i).tx_packets - before[i], 2u) << "line " << i << " after " << stop << " ms";
        run(1000);
        expect_voices("a second after " + std::to_string(stop) + " ms");
        for (uint32_t i = 0; i < kLines; i++) {
            EXPECT_EQ(counts(i).lost, 0u) << i;
            EXPECT_LE(counts(i).buffer_most_ms, 60u) << i;
        }
    }
}

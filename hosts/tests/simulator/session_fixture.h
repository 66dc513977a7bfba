// SPDX-License-Identifier: MIT
// Two ends of a call over real sockets, on a clock of the test's own; between them stands the test.
#pragma once

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

constexpr uint64_t kMs = 1000000;
inline uint64_t now_ns;

// One end, and what is heard there.
struct End {
    media_session session;
    std::vector<int16_t> heard;
    uint32_t said;
};

inline End ends[2];

inline int16_t voice_at(uint32_t sample) {
    return static_cast<int16_t>(6000 * std::sin(6.283185307179586 * 400 * (sample % kSampleRate) / kSampleRate));
}

inline void step(uint64_t position) {
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

inline void skip(uint64_t) {
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
        sampling_clock_replace([] { return now_ns; });
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

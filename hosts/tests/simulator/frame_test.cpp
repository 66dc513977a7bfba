// SPDX-License-Identifier: MIT
// Frames of sound: payload and mix.
#include "frame.h"

#include "libvoice_plugin.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

namespace {

constexpr uint32_t kFrameSamples = 160;

} // namespace

TEST(Frame, CodecsOfTheSimulatorAreG711AndG722) {
    for (uint32_t codec : {LIBVOICE_CODEC_PCMA, LIBVOICE_CODEC_PCMU, LIBVOICE_CODEC_G722})
        EXPECT_TRUE(frame_codec_is_known(codec)) << codec;
    for (uint32_t codec : {uint32_t{LIBVOICE_CODEC_G729}, uint32_t{LIBVOICE_CODEC_OPUS}, 96u, 255u})
        EXPECT_FALSE(frame_codec_is_known(codec)) << codec;
}

TEST(Frame, G711ComesBackAsItWent) {
    for (uint32_t codec : {LIBVOICE_CODEC_PCMA, LIBVOICE_CODEC_PCMU}) {
        int16_t samples[kFrameSamples], heard[kFrameSamples];
        uint8_t payload[kFrameSamples];
        for (uint32_t i = 0; i < kFrameSamples; i++)
            samples[i] = static_cast<int16_t>(i % 2 == 0 ? 8000 : -8000);
        frame_encode(codec, samples, kFrameSamples, payload);
        frame_decode(codec, payload, sizeof payload, heard);
        for (uint32_t i = 0; i < kFrameSamples; i++)
            EXPECT_NEAR(heard[i], samples[i], 300) << codec << " " << i;
    }
}

TEST(Frame, PacketsLastTenTwentyOrThirtyMilliseconds) {
    for (uint32_t size = 0; size <= 1500; size++) {
        EXPECT_EQ(frame_size_is_known(size), size == 80 || size == 160 || size == 240) << size;
        EXPECT_EQ(frame_ptime_is_known(size), size == 10 || size == 20 || size == 30) << size;
    }
}

// ITU-T G.722: the smallest step of either band, of which a decoder makes nothing. Zeros are its largest ones.
TEST(Frame, WidebandIsSilentHere) {
    int16_t samples[kFrameSamples] = {1000, -1000};
    uint8_t payload[kFrameSamples];
    frame_encode(LIBVOICE_CODEC_G722, samples, kFrameSamples, payload);
    EXPECT_EQ(std::count(std::begin(payload), std::end(payload), 0b11111101), kFrameSamples);
    payload[0] = 0xAA;
    frame_decode(LIBVOICE_CODEC_G722, payload, sizeof payload, samples);
    EXPECT_EQ(std::count(std::begin(samples), std::end(samples), 0), kFrameSamples);
}

TEST(Frame, MixStopsAtTheLoudestSample) {
    int16_t mix[kFrameSamples] = {30000, -30000, 5, INT16_MAX};
    const int16_t more[kFrameSamples] = {30000, -30000, -7, INT16_MIN};
    frame_add(mix, more, kFrameSamples);
    EXPECT_EQ(mix[0], INT16_MAX);
    EXPECT_EQ(mix[1], INT16_MIN);
    EXPECT_EQ(mix[2], -2);
    EXPECT_EQ(mix[3], -1);
    EXPECT_EQ(mix[4], 0);
}

TEST(Frame, LouderStopsAtTheLoudestSample) {
    int16_t samples[4] = {1000, -1000, 20000, -20000};
    frame_scale(samples, 4, 2);
    EXPECT_EQ(samples[0], 2000);
    EXPECT_EQ(samples[1], -2000);
    EXPECT_EQ(samples[2], INT16_MAX);
    EXPECT_EQ(samples[3], INT16_MIN);
    frame_scale(samples, 4, 0.1F);
    EXPECT_EQ(samples[0], 200);
}

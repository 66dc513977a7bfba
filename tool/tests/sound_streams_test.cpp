// SPDX-License-Identifier: MIT
// What RTP packets of a capture come to: by stream, with what was lost.
#include "sound_streams.h"

#include <gtest/gtest.h>

using namespace voicectl;

namespace {

constexpr uint64_t kTwentyMs = 20'000'000;

// A packet of 20 ms of A-law, as RFC 3550 draws it.
std::string rtp(uint16_t sequence, uint32_t source = 0x1234) {
    const uint32_t time = 160u * sequence;
    std::string packet = "\x80\x08";
    for (const uint32_t word : {uint32_t{sequence}})
        packet += {static_cast<char>(word >> 8), static_cast<char>(word)};
    for (const uint32_t word : {time, source})
        for (int shift = 24; shift >= 0; shift -= 8)
            packet += static_cast<char>(word >> shift);
    return packet + std::string(160, '\x55');
}

CapturedPacket at(uint64_t time_ns, const std::string &bytes, uint16_t port = 30000) {
    return {.time_ns = time_ns,
            .dissector = "rtp",
            .source = 0x7F000001,
            .destination = 0x7F000002,
            .source_port = port,
            .destination_port = 30002,
            .bytes = bytes};
}

TEST(SoundStreams, LossAndJitterAreCounted) {
    SoundStreams sound;
    for (uint16_t i = 0; i < 100; ++i)
        if (i != 40 && i != 41)
            sound.add(at(i * kTwentyMs + (i == 60 ? 8'000'000 : 0), rtp(static_cast<uint16_t>(65500 + i))));
    const std::vector<SoundStream> streams = sound.streams();
    ASSERT_EQ(streams.size(), 1u);
    EXPECT_EQ(streams[0].packets, 98u);
    EXPECT_EQ(streams[0].bytes, 98u * 160u);
    EXPECT_EQ(streams[0].lost, 2u);
    EXPECT_DOUBLE_EQ(streams[0].lost_percent(), 2.0);
    EXPECT_EQ(streams[0].end_ns - streams[0].begin_ns, 99 * kTwentyMs);
    // RFC 3550 6.4.1: a packet 8 ms late adds 8 ms / 16, the next one, early by as much, 8 ms / 16 of what is left.
    EXPECT_NEAR(streams[0].most_jitter_ms, 0.97, 0.1);
    const std::string words = stream_words(streams[0]);
    EXPECT_EQ(words.substr(0, words.find("jitter")), "98 packets  2 lost (2.0 %)  ");
    EXPECT_TRUE(words.ends_with(" ms at most  127.0.0.1:30000 to 127.0.0.2:30002")) << words;
}

TEST(SoundStreams, SourcesAndPortsAreStreamsOfTheirOwn) {
    SoundStreams sound;
    for (uint16_t i = 0; i < 3; ++i) {
        sound.add(at(i * kTwentyMs + 3, rtp(i, 1)));
        sound.add(at(i * kTwentyMs + 2, rtp(i, 2)));
        sound.add(at(i * kTwentyMs + 1, rtp(i, 1), 30008));
    }
    const std::vector<SoundStream> streams = sound.streams();
    ASSERT_EQ(streams.size(), 3u);
    EXPECT_EQ(streams[0].source_port, 30008);
    EXPECT_EQ(streams[1].ssrc, 2u);
    EXPECT_EQ(streams[2].ssrc, 1u);
    for (const SoundStream &stream : streams)
        EXPECT_EQ(stream.packets, 3u);
}

TEST(SoundStreams, WhatIsNoRtpIsLeftOut) {
    SoundStreams sound;
    CapturedPacket control = at(1, rtp(1));
    control.dissector = "rtcp";
    sound.add(control);
    sound.add(at(1, ""));
    sound.add(at(1, "Dear aunt, how are you?"));
    EXPECT_TRUE(sound.streams().empty());
}

TEST(SoundStreams, BeyondSoManyStreamsPacketsAreCountedOnly) {
    SoundStreams sound;
    for (uint32_t source = 0; source < SoundStreams::kMostStreams + 7; ++source)
        sound.add(at(source, rtp(1, source)));
    sound.add(at(1, rtp(2, 0)));
    EXPECT_EQ(sound.streams().size(), SoundStreams::kMostStreams);
    EXPECT_EQ(sound.left_out(), 7u);
}

TEST(SoundStreams, TypesHaveTheNamesOfRfc3551) {
    EXPECT_EQ(payload_type_words(0), "PCMU");
    EXPECT_EQ(payload_type_words(9), "G722");
    EXPECT_EQ(payload_type_words(101), "type 101");
}

} // namespace

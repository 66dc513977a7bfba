// SPDX-License-Identifier: MIT
#include "audio.h"

#include "kex_host.h"
#include "message.h"
#include "udp_pair.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int open_descriptors() {
    int count = 0;
    DIR *directory = opendir("/proc/self/fd");
    while (readdir(directory) != nullptr)
        count++;
    closedir(directory);
    return count;
}

void stream_of(voice_stream_info_t *info, uint32_t stream, uint32_t codec, uint32_t payload, uint32_t ptime = 20) {
    memset(info, 0, sizeof *info);
    info->stream = stream;
    info->mode = VOICE_MODE_SEND_RECEIVE;
    info->version = VOICE_CNX_VERSION;
    for (auto [id, value] : {std::pair<uint32_t, uint32_t>{LIBVOICE_PARAM_sdp_upstream_codec, codec},
                             {LIBVOICE_PARAM_sdp_upstream_payload, payload},
                             {LIBVOICE_PARAM_sdp_upstream_ptime, ptime},
                             {LIBVOICE_PARAM_sdp_downstream_codec, codec},
                             {LIBVOICE_PARAM_sdp_downstream_payload, payload}})
        params_add_int(info->params, sizeof info->params, &info->length, id, static_cast<int32_t>(value));
}

// Telephones on a bus of their own.
class Audio : public testing::Test {
protected:
    static void SetUpTestSuite() {
        bus_ = kex_create("test_audio");
        audio_begin(bus_);
        audio_start(&anna_, "anna", 400, note<0>);
        audio_start(&bert_, "bert", 600, note<1>);
        audio_start(&carl_, "carl", 640, note<2>);
    }
    static void TearDownTestSuite() { kex_destroy(bus_); }

    template <int who>
    static void note(audio *, const char *what) {
        heard_[who] = what;
    }

    void SetUp() override {
        for (std::string &text : heard_)
            text.clear();
    }

    static void connect(audio *one, uint32_t one_index, audio *other, uint32_t other_index, uint32_t context,
                        uint32_t stream) {
        int media[2], control[2];
        make_udp_pair(media);
        make_udp_pair(control);
        EXPECT_EQ(audio_open(one, one_index, &kAlaw, media[0], control[0], context, stream), nullptr);
        EXPECT_EQ(audio_open(other, other_index, &kAlaw, media[1], control[1], 0, 0), nullptr);
    }

    // Runs the loop until everybody has heard what he should, or 5 s are over.
    static bool hear(const char *anna, const char *bert, const char *carl) {
        for (int turns = 0; turns < 500; turns++) {
            pollfd ready = {kex_pollDescriptor(bus_), POLLIN, 0};
            poll(&ready, 1, 10);
            kex_dispatch(bus_);
            if (heard_[0] == anna && heard_[1] == bert && heard_[2] == carl)
                return true;
        }
        ADD_FAILURE() << "anna hears '" << heard_[0] << "', bert '" << heard_[1] << "', carl '" << heard_[2] << "'";
        return false;
    }

    static constexpr media_format kAlaw = {VOICE_MODE_SEND_RECEIVE, LIBVOICE_CODEC_PCMA, 8};
    static inline kex_t *bus_;
    static inline audio anna_, bert_, carl_;
    static inline std::string heard_[3];
};

} // namespace

TEST_F(Audio, TwoHearEachOtherAndCountTruly) {
    connect(&anna_, 0, &bert_, 0, 0, 0);
    int before = open_descriptors();
    EXPECT_TRUE(hear("600Hz", "400Hz", ""));
    media_statistics anna, bert;
    ASSERT_TRUE(audio_close(&anna_, 0, &anna));
    ASSERT_TRUE(audio_close(&bert_, 0, &bert));
    EXPECT_GE(anna.tx_packets, 20u) << "the ear needs 400 ms";
    EXPECT_EQ(anna.tx_bytes, anna.tx_packets * 160);
    EXPECT_EQ(bert.rx_packets, anna.tx_packets) << "closing reads what has arrived";
    EXPECT_EQ(bert.lost, 0u);
    EXPECT_EQ(bert.discarded, 0u);
    EXPECT_EQ(open_descriptors(), before - 4);
    EXPECT_FALSE(audio_close(&anna_, 0, &anna)) << "there is nothing to close any more";
}

TEST_F(Audio, InAConferenceEachHearsTheOthers) {
    connect(&anna_, 0, &bert_, 0, 9, 1);
    connect(&anna_, 1, &carl_, 0, 9, 2);
    EXPECT_TRUE(hear("600Hz+640Hz", "400Hz+640Hz", "400Hz+600Hz"));
    for (audio *who : {&anna_, &bert_, &carl_})
        for (uint32_t index = 0; index < kSessions; index++)
            audio_close(who, index, nullptr);
}

TEST_F(Audio, TwoCallsOutsideAConferenceDoNotMix) {
    connect(&anna_, 0, &bert_, 0, 0, 0);
    connect(&anna_, 1, &carl_, 0, 0, 0);
    EXPECT_TRUE(hear("600Hz+640Hz", "400Hz", "400Hz"));
    for (audio *who : {&anna_, &bert_, &carl_})
        for (uint32_t index = 0; index < kSessions; index++)
            audio_close(who, index, nullptr);
}

TEST_F(Audio, AnotherCodecIsDiscardedUntilBothChange) {
    connect(&anna_, 0, &bert_, 0, 0, 0);
    EXPECT_TRUE(hear("600Hz", "400Hz", ""));
    const media_format ulaw = {VOICE_MODE_SEND_RECEIVE, LIBVOICE_CODEC_PCMU, 0};
    EXPECT_EQ(audio_change(&anna_, 0, &ulaw, -1, -1), nullptr);
    heard_[0].clear();             // her ear starts anew
    EXPECT_TRUE(hear("", "", "")); // neither understands the other
    EXPECT_EQ(audio_change(&bert_, 0, &ulaw, -1, -1), nullptr);
    EXPECT_TRUE(hear("600Hz", "400Hz", ""));
    media_statistics anna;
    audio_close(&anna_, 0, &anna);
    audio_close(&bert_, 0, nullptr);
    EXPECT_GT(anna.discarded, 0u);
    EXPECT_EQ(anna.lost, 0u) << "a discarded packet has come: lost and discarded are told apart (RFC 3611 4.1, 4.2)";
}

TEST_F(Audio, WhatCannotBeOpenedIsClosed) {
    int before = open_descriptors();
    int pipes[2];
    ASSERT_EQ(pipe2(pipes, O_CLOEXEC), 0);
    EXPECT_STREQ(audio_open(&anna_, 0, &kAlaw, pipes[0], pipes[1], 0, 0), "media descriptor is no connected socket");
    EXPECT_STREQ(audio_open(&anna_, 0, &kAlaw, -1, -1, 0, 0), "media descriptor is no connected socket");
    int media[2];
    make_udp_pair(media);
    int control = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_STREQ(audio_open(&anna_, 0, &kAlaw, media[0], control, 0, 0), "control descriptor is no connected socket");
    close(media[1]);
    control = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_STREQ(audio_open(&anna_, kSessions, &kAlaw, -1, control, 0, 0), "no such line");
    control = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_STREQ(audio_change(&anna_, 0, &kAlaw, -1, control), "there is no media to change");
    EXPECT_EQ(open_descriptors(), before);
}

TEST(MediaRecord, IsReadWhenItIsGood) {
    voice_stream_info_t info;
    media_format format;
    uint32_t stream = 0;
    stream_of(&info, 5, LIBVOICE_CODEC_PCMU, 0);
    info.mode = VOICE_MODE_SEND_ONLY;
    EXPECT_EQ(media_read_stream(&info, &format, &stream), nullptr);
    EXPECT_EQ(stream, 5u);
    EXPECT_EQ(format.mode, static_cast<uint32_t>(VOICE_MODE_SEND_ONLY));
    EXPECT_EQ(format.codec, static_cast<uint32_t>(LIBVOICE_CODEC_PCMU));
    EXPECT_EQ(format.payload_type, 0u);
}

TEST(MediaRecord, IsRefusedWithAReason) {
    voice_stream_info_t info;
    media_format format;
    uint32_t stream;
    stream_of(&info, 1, LIBVOICE_CODEC_G729, 18);
    EXPECT_STREQ(media_read_stream(&info, &format, &stream), "no G729 here");
    stream_of(&info, 1, LIBVOICE_CODEC_PCMA, 128);
    EXPECT_STREQ(media_read_stream(&info, &format, &stream), "both directions must have the same codec");
    stream_of(&info, 1, LIBVOICE_CODEC_PCMA, 8, 30);
    EXPECT_STREQ(media_read_stream(&info, &format, &stream), "packets must last 20 ms");
    stream_of(&info, 1, LIBVOICE_CODEC_PCMA, 8);
    info.mode = 4;
    EXPECT_STREQ(media_read_stream(&info, &format, &stream), "unknown stream mode");
    stream_of(&info, 1, LIBVOICE_CODEC_PCMA, 8);
    info.length = VOICE_CNX_PARAMETER_BYTES + 1;
    EXPECT_STREQ(media_read_stream(&info, &format, &stream), "media record is longer than its room");
    info.length = 0;
    EXPECT_STREQ(media_read_stream(&info, &format, &stream), "media record lacks codec or packet time");
    info.version = 2;
    EXPECT_STREQ(media_read_stream(&info, &format, &stream), "media record of another version");
}

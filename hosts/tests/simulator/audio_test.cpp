// SPDX-License-Identifier: MIT
#include "audio.h"

#include "kex_host.h"
#include "udp_pair.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
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

line_media_t with_sockets(line_media_t media, int rtp, int rtcp, uint32_t context = 0, uint32_t stream = 0) {
    media.media = rtp;
    media.control = rtcp;
    media.context = context;
    media.stream = stream;
    return media;
}

// Telephones on a bus of their own.
class Audio : public testing::Test {
protected:
    static void SetUpTestSuite() {
        bus_ = kex_create("test_audio");
        audio_begin(nullptr, "none"); // it watches nothing
        try_without_clock();
        audio_begin(bus_, "test");
        audio_start(&anna_, "anna", 1000, note<0>);
        audio_start(&bert_, "bert", 2200, note<1>);
        audio_start(&carl_, "carl", 2240, note<2>);
    }
    static void TearDownTestSuite() { kex_destroy(bus_); }

    // The clock of all sound is made with the first: when that fails, the next one must make it.
    static void try_without_clock() {
        int media[2], control[2];
        make_udp_pair(media);
        make_udp_pair(control);
        const line_media_t one = with_sockets(kAlaw, media[0], control[0]);
        const int before = open_descriptors();
        const char *wrong = audio_open(&anna_, 0, &one);
        without_clock_ = wrong != nullptr ? wrong : "opened";
        descriptors_left_ = open_descriptors() - before;
        for (int fd : {media[0], media[1], control[0], control[1]})
            close(fd);
    }

    template <int who>
    static void note(const audio *, const char *what) {
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
        const line_media_t here = with_sockets(kAlaw, media[0], control[0], context, stream);
        const line_media_t there = with_sockets(kAlaw, media[1], control[1]);
        EXPECT_EQ(audio_open(one, one_index, &here), nullptr);
        EXPECT_EQ(audio_open(other, other_index, &there), nullptr);
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

    static constexpr line_media_t kAlaw = {VOICE_MODE_SEND_RECEIVE, LIBVOICE_CODEC_PCMA, 8, 20, 0, 0, -1, -1};
    static inline kex_t *bus_;
    static inline audio anna_, bert_, carl_;
    static inline std::string heard_[3];
    static inline std::string without_clock_;
    static inline int descriptors_left_;
};

} // namespace

TEST_F(Audio, AClockThatCannotBeWatchedLeavesNothingBehind) {
    EXPECT_EQ(without_clock_, "no clock");
    EXPECT_EQ(descriptors_left_, 0);
}

TEST_F(Audio, TwoHearEachOtherAndCountTruly) {
    connect(&anna_, 0, &bert_, 0, 0, 0);
    int before = open_descriptors();
    EXPECT_TRUE(hear("2200Hz", "1000Hz", ""));
    line_statistics_t anna, bert;
    ASSERT_TRUE(audio_close(&anna_, 0, &anna));
    ASSERT_TRUE(audio_close(&bert_, 0, &bert));
    EXPECT_GE(anna.tx_packets, 20u) << "the detector needs 400 ms";
    EXPECT_EQ(anna.tx_bytes, anna.tx_packets * 160);
    EXPECT_EQ(bert.rx_packets, anna.tx_packets) << "closing reads what has arrived";
    EXPECT_EQ(bert.lost, 0u);
    EXPECT_EQ(bert.discarded, bert.late) << "nothing but what a busy machine makes late";
    EXPECT_EQ(open_descriptors(), before - 4);
    EXPECT_FALSE(audio_close(&anna_, 0, &anna)) << "there is nothing to close any more";
}

TEST_F(Audio, InAConferenceEachHearsTheOthers) {
    connect(&anna_, 0, &bert_, 0, 9, 1);
    connect(&anna_, 1, &carl_, 0, 9, 2);
    EXPECT_TRUE(hear("2200Hz+2240Hz", "1000Hz+2240Hz", "1000Hz+2200Hz"));
    for (audio *who : {&anna_, &bert_, &carl_})
        for (uint32_t index = 0; index < kSessions; index++)
            audio_close(who, index, nullptr);
}

TEST_F(Audio, TwoCallsOutsideAConferenceDoNotMix) {
    connect(&anna_, 0, &bert_, 0, 0, 0);
    connect(&anna_, 1, &carl_, 0, 0, 0);
    EXPECT_TRUE(hear("2200Hz+2240Hz", "1000Hz", "1000Hz"));
    for (audio *who : {&anna_, &bert_, &carl_})
        for (uint32_t index = 0; index < kSessions; index++)
            audio_close(who, index, nullptr);
}

TEST_F(Audio, AnotherCodecIsDiscardedUntilBothChange) {
    connect(&anna_, 0, &bert_, 0, 0, 0);
    EXPECT_TRUE(hear("2200Hz", "1000Hz", ""));
    const line_media_t ulaw = {VOICE_MODE_SEND_RECEIVE, LIBVOICE_CODEC_PCMU, 0, 20, 0, 0, -1, -1};
    EXPECT_EQ(audio_change(&anna_, 0, &ulaw), nullptr);
    heard_[0].clear();             // her detector begins anew
    EXPECT_TRUE(hear("", "", "")); // neither understands the other
    EXPECT_EQ(audio_change(&bert_, 0, &ulaw), nullptr);
    EXPECT_TRUE(hear("2200Hz", "1000Hz", ""));
    line_statistics_t anna;
    audio_close(&anna_, 0, &anna);
    audio_close(&bert_, 0, nullptr);
    EXPECT_GT(anna.discarded, 0u);
    EXPECT_EQ(anna.lost, 0u) << "a discarded packet has come: lost and discarded are told apart (RFC 3611 4.1, 4.2)";
}

TEST_F(Audio, WhatCannotBeOpenedStaysTheCallers) {
    const line_media_t nothing = with_sockets(kAlaw, -1, -1);
    ASSERT_NE(audio_open(&anna_, 0, &nothing), nullptr); // makes the clock of all sound, which stays
    int before = open_descriptors();
    int pipes[2], media[2];
    ASSERT_EQ(pipe2(pipes, O_CLOEXEC), 0);
    make_udp_pair(media);
    const int nowhere = open("/dev/null", O_RDONLY | O_CLOEXEC);
    line_media_t g729 = with_sockets(kAlaw, media[0], -1), slow = g729;
    g729.codec = LIBVOICE_CODEC_G729;
    slow.ptime_ms = 40;
    const struct {
        uint32_t index;
        line_media_t media;
        const char *why;
    } rows[] = {
        {0, with_sockets(kAlaw, pipes[0], pipes[1]), "media descriptor is no connected socket"},
        {0, with_sockets(kAlaw, -1, -1), "media descriptor is no connected socket"},
        {0, with_sockets(kAlaw, media[0], nowhere), "control descriptor is no connected socket"},
        {kSessions, with_sockets(kAlaw, media[0], -1), "no such line"},
        {0, g729, "no G729 here"},
        {0, slow, "packets must last 10, 20 or 30 ms"},
    };
    for (const auto &row : rows)
        EXPECT_STREQ(audio_open(&anna_, row.index, &row.media), row.why);
    const line_media_t change = with_sockets(kAlaw, -1, nowhere);
    EXPECT_STREQ(audio_change(&anna_, 0, &change), "there is no media to change");
    EXPECT_EQ(open_descriptors(), before + 5) << "nothing was closed";
    for (int fd : {pipes[0], pipes[1], media[0], media[1], nowhere})
        EXPECT_EQ(close(fd), 0);
}

TEST_F(Audio, AChangeThatFailsLeavesWhatWas) {
    connect(&anna_, 0, &bert_, 0, 0, 0);
    const int nowhere = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const line_media_t bad = with_sockets(kAlaw, nowhere, -1, 7, 1);
    EXPECT_STREQ(audio_change(&anna_, 0, &bad), "media descriptor is no connected socket");
    EXPECT_EQ(close(nowhere), 0) << "still the caller's";
    EXPECT_TRUE(hear("2200Hz", "1000Hz", ""));
    audio_close(&anna_, 0, nullptr);
    audio_close(&bert_, 0, nullptr);
}

TEST_F(Audio, AChangeOfSocketsClosesTheOldOnes) {
    connect(&anna_, 0, &bert_, 0, 0, 0);
    int before = open_descriptors();
    int media[2];
    make_udp_pair(media);
    const line_media_t here = with_sockets(kAlaw, media[0], -1), there = with_sockets(kAlaw, media[1], -1);
    EXPECT_EQ(audio_change(&anna_, 0, &here), nullptr);
    EXPECT_EQ(audio_change(&bert_, 0, &there), nullptr);
    EXPECT_EQ(open_descriptors(), before) << "two came, two went";
    EXPECT_TRUE(hear("2200Hz", "1000Hz", ""));
    audio_close(&anna_, 0, nullptr);
    audio_close(&bert_, 0, nullptr);
    EXPECT_EQ(open_descriptors(), before - 4);
}

TEST_F(Audio, WhatIsSaidTooSoftlyIsNotHeard) {
    connect(&anna_, 0, &bert_, 0, 0, 0);
    anna_.said_factor = 0.01F;
    EXPECT_TRUE(hear("2200Hz", "", ""));
    anna_.said_factor = 1;
    bert_.heard_factor = 0.01F;
    EXPECT_TRUE(hear("2200Hz", "", ""));
    bert_.heard_factor = 1;
    EXPECT_TRUE(hear("2200Hz", "1000Hz", ""));
    audio_close(&anna_, 0, nullptr);
    audio_close(&bert_, 0, nullptr);
}

TEST_F(Audio, TheWaitIsThatOfTheNewestPacket) {
    EXPECT_EQ(audio_wait_ms(&anna_), 0u);
    connect(&anna_, 0, &bert_, 0, 0, 0);
    EXPECT_TRUE(hear("2200Hz", "1000Hz", ""));
    EXPECT_GE(audio_wait_ms(&anna_), 10u);
    EXPECT_LE(audio_wait_ms(&anna_), 200u);
    audio_close(&anna_, 0, nullptr);
    audio_close(&bert_, 0, nullptr);
    EXPECT_EQ(audio_wait_ms(&anna_), 0u);
}

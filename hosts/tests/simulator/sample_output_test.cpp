// SPDX-License-Identifier: MIT
// Samples for a player, which may read, stop reading, or go away.
#include "sample_output.h"

#include "scratch_folder.h"
#include "wav_bytes.h"

#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class SampleOutput : public ScratchFolder {
protected:
    SampleOutput() {
        signal(SIGPIPE, SIG_IGN); // as in every host
        EXPECT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    }
    ~SampleOutput() override {
        sample_output_close(&output_);
        close_player();
    }
    void open_player() { player_ = open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }
    void close_player() {
        if (player_ >= 0)
            close(player_);
        player_ = -1;
    }
    std::string played() const {
        char bytes[65536];
        const ssize_t got = read(player_, bytes, sizeof bytes);
        return got > 0 ? std::string(bytes, static_cast<size_t>(got)) : "";
    }
    const char *put_step(int16_t value) {
        int16_t step[80];
        for (int16_t &sample : step)
            sample = value;
        return sample_output_put(&output_, step, 80);
    }

    sample_output output_ = {};
    int player_ = -1;
};

TEST_F(SampleOutput, PlayerGetsTheLowestByteFirst) {
    open_player();
    ASSERT_EQ(sample_output_open(&output_, path("pipe").c_str()), nullptr);
    const int16_t samples[] = {1, -2, 0x1234};
    EXPECT_EQ(sample_output_put(&output_, samples, 3), nullptr);
    EXPECT_EQ(played(), sound_of({1, -2, 0x1234}));
}

TEST_F(SampleOutput, WhoDoesNotReadMissesSoundAndItIsCounted) {
    open_player();
    ASSERT_EQ(sample_output_open(&output_, path("pipe").c_str()), nullptr);
    for (int16_t step = 0; step < 1000; step++)
        ASSERT_EQ(put_step(step), nullptr);
    EXPECT_EQ(output_.given + output_.dropped, 80000u);
    EXPECT_GT(output_.dropped, 40000u);
    EXPECT_EQ(played().size(), output_.given * 2);
    EXPECT_EQ(put_step(7), nullptr); // it reads again: what comes now
    EXPECT_EQ(played().substr(0, 2), sound_of({7}));
}

TEST_F(SampleOutput, PipeNeedsAReader) {
    EXPECT_STREQ(sample_output_open(&output_, path("pipe").c_str()),
                 "is a pipe that nobody reads: start its reader first");
    EXPECT_FALSE(output_.open);
}

TEST_F(SampleOutput, PipeOrFileHasOneWriter) {
    open_player();
    for (const char *name : {"pipe", "a.raw"}) {
        ASSERT_EQ(sample_output_open(&output_, path(name).c_str()), nullptr);
        sample_output other = {};
        EXPECT_STREQ(sample_output_open(&other, path(name).c_str()), "is being written to");
        EXPECT_FALSE(other.open);
        sample_output_close(&output_);
    }
}

TEST_F(SampleOutput, ReaderThatGoesEndsIt) {
    open_player();
    ASSERT_EQ(sample_output_open(&output_, path("pipe").c_str()), nullptr);
    close_player();
    EXPECT_STREQ(put_step(1), "nobody reads any more");
    EXPECT_FALSE(output_.open);
}

TEST_F(SampleOutput, FileIsNewOrEmpty) {
    put("a.raw", "");
    ASSERT_EQ(sample_output_open(&output_, path("a.raw").c_str()), nullptr);
    EXPECT_EQ(put_step(1), nullptr);
    sample_output_close(&output_);
    EXPECT_STREQ(sample_output_open(&output_, path("a.raw").c_str()), "is there already");
    EXPECT_EQ(contents("a.raw").size(), 160u);
    EXPECT_STREQ(sample_output_open(&output_, "/dev/full"), "is a device, not a file");
    EXPECT_STREQ(sample_output_open(&output_, path("").c_str()), "is a folder");
}

} // namespace

// SPDX-License-Identifier: MIT
// Recordings: valid at any moment, ended with a reason.
#include "wav_writer.h"

#include "scratch_folder.h"
#include "wav_bytes.h"

#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

class WavWriter : public ScratchFolder {
protected:
    ~WavWriter() override {
        if (writer_.open)
            wav_writer_close(&writer_);
    }
    std::string wrong(const std::string &file) {
        const char *said = wav_writer_open(&writer_, file.c_str());
        if (said == nullptr)
            said = wav_writer_begin(&writer_);
        EXPECT_EQ(writer_.open, said == nullptr);
        return said == nullptr ? "" : said;
    }
    // So many samples, each channel with numbers of its own.
    const char *write(uint32_t count) {
        std::vector<int16_t> left(count), right(count);
        for (uint32_t i = 0; i < count; i++) {
            left[i] = static_cast<int16_t>(i + 1);
            right[i] = static_cast<int16_t>(-left[i]);
        }
        return wav_writer_put(&writer_, left.data(), right.data(), count);
    }
    // The samples that the head counts, which are there.
    uint32_t samples_found() const {
        const std::string all = contents("a.wav");
        if (all.size() < 44)
            return UINT32_MAX;
        uint32_t bytes = 0;
        for (int i = 3; i >= 0; i--)
            bytes = bytes << 8 | static_cast<uint8_t>(all[static_cast<size_t>(40 + i)]);
        EXPECT_EQ(all.substr(0, 44), (WavBytes{1, 2, 8000, 16}.file(std::string(bytes, 'x')).substr(0, 44)));
        EXPECT_GE(all.size(), 44 + bytes);
        return bytes / 4;
    }

    wav_writer writer_ = {};
};

TEST_F(WavWriter, WritesLeftAndRightInTurn) {
    ASSERT_EQ(wrong(path("a.wav")), "");
    EXPECT_EQ(write(2), nullptr);
    EXPECT_EQ(wav_writer_length(&writer_), 2u);
    EXPECT_EQ(wav_writer_close(&writer_), nullptr);
    EXPECT_EQ(contents("a.wav"), (WavBytes{1, 2, 8000, 16}.file(sound_of({1, -1, 2, -2}))));
}

TEST_F(WavWriter, FileIsValidAfterEachStep) {
    ASSERT_EQ(wrong(path("a.wav")), "");
    EXPECT_EQ(samples_found(), 0u);
    for (uint32_t step = 1; step <= 200; step++) {
        ASSERT_EQ(write(80), nullptr);
        EXPECT_LT(step * 80 - samples_found(), kWavFlushSamples); // 200 ms at most are missing
    }
}

// Nothing can be done any more when it comes. A machine without time may kill before anything is begun.
TEST_F(WavWriter, KilledAtAnyMomentItLeavesAValidFile) {
    int found = 0;
    for (unsigned turn = 0; found < 10 && turn < 1000; turn++) {
        std::filesystem::remove(path("a.wav"));
        const pid_t child = fork();
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (bool begun = wrong(path("a.wav")).empty(); begun;)
                begun = write(80) == nullptr;
            _exit(0);
        }
        usleep(2000 * (turn % 10));
        kill(child, SIGKILL);
        int status;
        waitpid(child, &status, 0);
        if (contents("a.wav").empty()) // not even begun
            continue;
        EXPECT_NE(samples_found(), UINT32_MAX);
        found++;
    }
    EXPECT_EQ(found, 10);
}

TEST_F(WavWriter, SilenceIsAHole) {
    ASSERT_EQ(wrong(path("a.wav")), "");
    EXPECT_EQ(write(1), nullptr);
    EXPECT_EQ(wav_writer_skip(&writer_, 8000 * 3600), nullptr);
    EXPECT_EQ(write(1), nullptr);
    EXPECT_EQ(wav_writer_close(&writer_), nullptr);
    struct stat status = {};
    ASSERT_EQ(stat(path("a.wav").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 44 + (8000 * 3600 + 2) * 4);
    EXPECT_LT(status.st_blocks, 1024); // of 512 bytes
}

TEST_F(WavWriter, FullFileEnds) {
    ASSERT_EQ(wrong(path("a.wav")), "");
    writer_.most = 8000;
    EXPECT_EQ(write(1999), nullptr);
    EXPECT_STREQ(write(2), "it is as long as a WAV file can be");
    EXPECT_FALSE(writer_.open);
    EXPECT_EQ(samples_found(), 1600u);
    EXPECT_EQ(contents("a.wav").size(), 44u + 1600 * 4);
}

TEST_F(WavWriter, SilenceOfDaysEndsIt) {
    ASSERT_EQ(wrong(path("a.wav")), "");
    EXPECT_STREQ(wav_writer_skip(&writer_, UINT64_MAX / 2), "it is as long as a WAV file can be");
    EXPECT_FALSE(writer_.open);
}

// A limit on the size of files stands in for a full disk: both refuse the bytes.
TEST_F(WavWriter, WhatCannotBeWrittenEndsItWithTheReasonAndAValidFile) {
    ASSERT_EQ(wrong(path("a.wav")), "");
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {10000, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_EQ(write(1600), nullptr);
    EXPECT_STREQ(write(1600), strerror(EFBIG));
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    signal(SIGXFSZ, handler);
    EXPECT_FALSE(writer_.open);
    EXPECT_EQ(samples_found(), 1600u);
    EXPECT_EQ(contents("a.wav").size(), 44u + 1600 * 4);
}

TEST_F(WavWriter, OnlyAPlainFileIsWritten) {
    EXPECT_EQ(wrong("/dev/full"), "is a device, not a file");
    EXPECT_EQ(wrong(path("")), "is a folder");
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(wrong(path("pipe")), "is a pipe or a socket, not a file");
    EXPECT_EQ(wrong(path("no/a.wav")), strerror(ENOENT));
}

TEST_F(WavWriter, WhatIsNoRecordingIsLeftAlone) {
    EXPECT_EQ(wrong(put("a.txt", "Dear aunt,\n")), "is there already and is no WAV file");
    EXPECT_EQ(wrong(put("b.txt", "RIFF")), "is there already and is no WAV file");
    EXPECT_EQ(contents("a.txt"), "Dear aunt,\n");
    EXPECT_EQ(wrong(put("a.wav", WavBytes().file(std::string(9000, 'x')))), "");
    EXPECT_EQ(wav_writer_close(&writer_), nullptr);
    EXPECT_EQ(contents("a.wav").size(), 44u);
    EXPECT_EQ(wrong(put("c.wav", "")), "");
}

TEST_F(WavWriter, NewFileIsForItsOwnerOnly) {
    const mode_t before = umask(0);
    EXPECT_EQ(wrong(path("a.wav")), "");
    umask(before);
    EXPECT_EQ(std::filesystem::status(path("a.wav")).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(WavWriter, FileStaysAsItIsUntilItIsBegun) {
    put("a.wav", WavBytes().file(sound_of({1, 2})));
    ASSERT_EQ(wav_writer_open(&writer_, path("a.wav").c_str()), nullptr);
    EXPECT_EQ(contents("a.wav"), WavBytes().file(sound_of({1, 2})));
    wav_writer_leave(&writer_);
    EXPECT_EQ(contents("a.wav"), WavBytes().file(sound_of({1, 2})));
}

TEST_F(WavWriter, FileHasOneWriter) {
    ASSERT_EQ(wrong(path("a.wav")), "");
    EXPECT_EQ(write(2000), nullptr);
    wav_writer other = {};
    EXPECT_STREQ(wav_writer_open(&other, path("a.wav").c_str()), "is being recorded to");
    EXPECT_EQ(samples_found(), 1600u);
    EXPECT_EQ(wav_writer_close(&writer_), nullptr);
    EXPECT_EQ(wrong(path("a.wav")), "");
}

} // namespace

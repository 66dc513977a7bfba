// SPDX-License-Identifier: MIT
// Where captures go: what is refused, and what stays in a file that cannot grow.
#include "capture_file.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "pcapng.h"

using namespace voicectl;

namespace {

class CaptureFileTest : public testing::Test {
protected:
    CaptureFileTest() {
        char name[] = "/tmp/capture-XXXXXX";
        folder_ = mkdtemp(name);
    }
    ~CaptureFileTest() override {
        unlink(path().c_str());
        rmdir(folder_.c_str());
    }
    std::string path() const { return folder_ + "/a.pcapng"; }
    std::string content() const {
        std::ifstream file(path(), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string folder_;
    RunLimit limit_{0};
};

TEST_F(CaptureFileTest, NewFileIsItsOwnersAlone) {
    CaptureFile file;
    ASSERT_EQ(file.open(path(), false), "");
    struct stat found {};
    ASSERT_EQ(stat(path().c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0600u);
}

TEST_F(CaptureFileTest, FileThatIsThereIsReplacedOnRequestOnly) {
    std::ofstream(path()) << "something older";
    CaptureFile refused;
    EXPECT_EQ(refused.open(path(), false), "'" + path() + "' is there already: --force replaces it");
    EXPECT_EQ(content(), "something older");
    CaptureFile file;
    ASSERT_EQ(chmod(path().c_str(), 0644), 0);
    EXPECT_EQ(file.open(path(), true), "");
    EXPECT_EQ(content(), "");
    struct stat found {};
    ASSERT_EQ(stat(path().c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0600u) << "whoever could read the older one cannot read this one";
}

TEST_F(CaptureFileTest, WhatIsNoFileIsWrittenAsItIs) {
    CaptureFile file;
    EXPECT_EQ(file.open("/dev/null", false), "");
    CaptureFile folder;
    EXPECT_EQ(folder.open(folder_, false), "'" + folder_ + "' cannot be written: Is a directory");
    CaptureFile nowhere;
    EXPECT_EQ(nowhere.open(folder_ + "/none/a", true),
              "'" + folder_ + "/none/a' cannot be written: No such file or directory");
}

TEST_F(CaptureFileTest, FullDeviceIsSaid) {
    CaptureFile file;
    ASSERT_EQ(file.open("/dev/full", false), "");
    file.add("x", limit_);
    file.write(limit_);
    EXPECT_EQ(file.fault(), "the capture cannot be written: No space left on device");
}

// As on a full disk: some of what is to be written goes through.
TEST_F(CaptureFileTest, FileThatCannotGrowKeepsItsWholeBlocks) {
    const std::string block = pcapng::packet(0, 0, std::string(60, 'x'), 0, "");
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small = {block.size() * 3 + block.size() / 2, before.rlim_max};
    CaptureFile file;
    ASSERT_EQ(file.open(path(), false), "");
    file.add(block, limit_);
    file.write(limit_);
    setrlimit(RLIMIT_FSIZE, &small);
    for (int i = 0; i < 5; i++)
        file.add(block, limit_);
    file.write(limit_);
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(file.fault(), "the capture cannot be written: File too large");
    EXPECT_EQ(content(), block + block + block);
}

// Standard output that appends begins at 0, wherever its end is.
TEST_F(CaptureFileTest, WhatStoodBeforeTheCaptureStaysWhenItCannotGrow) {
    const std::string block = pcapng::packet(0, 0, std::string(60, 'x'), 0, "");
    const std::string older(1000, 'o');
    std::ofstream(path()) << older;
    RunLimit::signals_take();
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small = {older.size() + block.size() + block.size() / 2, before.rlim_max};
    const int appending = open(path().c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    ASSERT_GE(appending, 0);
    const int output = dup(STDOUT_FILENO);
    ASSERT_EQ(dup2(appending, STDOUT_FILENO), STDOUT_FILENO);
    CaptureFile file;
    const std::string wrong = file.open("-", false);
    setrlimit(RLIMIT_FSIZE, &small);
    file.add(block + block, limit_);
    file.write(limit_);
    setrlimit(RLIMIT_FSIZE, &before);
    dup2(output, STDOUT_FILENO);
    close(output);
    close(appending);
    EXPECT_EQ(wrong, "");
    EXPECT_EQ(file.fault(), "the capture cannot be written: File too large") << "it is no signal, either";
    EXPECT_EQ(content(), older + block);
}

// One in whose queue nothing has room ends with the run.
TEST_F(CaptureFileTest, ReaderThatTakesNothingIsNotWaitedForBehindTheEnd) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::string name = "/dev/fd/" + std::to_string(ends[1]);
    CaptureFile file;
    ASSERT_EQ(file.open(name, false), "");
    RunLimit short_limit(0.05);
    file.add(std::string(1 << 20, 'x'), short_limit);
    EXPECT_EQ(file.fault(), "nobody reads the output: its end is missing");
    close(ends[0]);
    close(ends[1]);
}

TEST_F(CaptureFileTest, ReaderThatLeavesIsNoFault) {
    std::signal(SIGPIPE, SIG_IGN);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    CaptureFile file;
    ASSERT_EQ(file.open("/dev/fd/" + std::to_string(ends[1]), false), "");
    close(ends[0]);
    file.add("block", limit_);
    file.write(limit_);
    EXPECT_TRUE(limit_.reader_left());
    EXPECT_EQ(file.fault(), "");
    close(ends[1]);
}

} // namespace

// SPDX-License-Identifier: MIT
#include "label_file.h"

#include "scratch_folder.h"

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>

namespace {

class LabelFile : public ScratchFolder {
protected:
    LabelFile() { EXPECT_EQ(wrong(&labels_, path("a.txt")), ""); }
    ~LabelFile() override { label_file_close(&labels_); }

    static std::string wrong(label_file *labels, const std::string &file) {
        const char *said = label_file_open(labels, file.c_str());
        EXPECT_EQ(labels->open, said == nullptr);
        if (said == nullptr)
            said = label_file_begin(labels);
        return said == nullptr ? "" : said;
    }

    label_file labels_ = {};
};

TEST_F(LabelFile, RowIsThereAtOnceWithItsTimeInSeconds) {
    EXPECT_NE(label_file_add(&labels_, 0, "off hook"), 0u);
    EXPECT_EQ(contents("a.txt"), "00000.000000\t00000.000000\toff hook\n");
    EXPECT_NE(label_file_add(&labels_, 8001, "digit 2"), 0u);
    EXPECT_EQ(contents("a.txt"), "00000.000000\t00000.000000\toff hook\n00001.000125\t00001.000125\tdigit 2\n");
}

TEST_F(LabelFile, EndIsWrittenOver) {
    const uint64_t first = label_file_add(&labels_, 80, "rings");
    const uint64_t second = label_file_add(&labels_, 160, "dial-tone");
    EXPECT_TRUE(label_file_extend(&labels_, first, 16000));
    EXPECT_TRUE(label_file_extend(&labels_, second, 24000));
    EXPECT_TRUE(label_file_extend(&labels_, second, 799999999));
    EXPECT_EQ(contents("a.txt"), "00000.010000\t00002.000000\trings\n00000.020000\t99999.999875\tdial-tone\n");
}

TEST_F(LabelFile, TextStaysInItsRowAndColumn) {
    label_file_add(&labels_, 0, "displays name=\"Aunt\tMary\n\x1b[1m\"");
    EXPECT_EQ(contents("a.txt"), "00000.000000\t00000.000000\tdisplays name=\"Aunt.Mary..[1m\"\n");
    label_file_add(&labels_, 0, std::string(1000, 'x').c_str());
    EXPECT_LT(contents("a.txt").size(), 300u);
}

TEST_F(LabelFile, LabelsThatAreThereAreReplacedOnceTheFileIsBegun) {
    const std::string old = "00000.000000\t00001.000125\toff hook\n";
    label_file other = {};
    EXPECT_EQ(label_file_open(&other, put("b.txt", old).c_str()), nullptr);
    EXPECT_EQ(contents("b.txt"), old);
    EXPECT_EQ(label_file_begin(&other), nullptr);
    EXPECT_EQ(contents("b.txt"), "");
    label_file_close(&other);
    EXPECT_EQ(wrong(&other, put("c.txt", "")), "");
    label_file_close(&other);
}

// A limit on the size of files stands in for a full disk: both take a part of the bytes.
TEST_F(LabelFile, RowThatDoesNotFitIsNoHalfRow) {
    EXPECT_NE(label_file_add(&labels_, 0, "off hook"), 0u);
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {50, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_EQ(label_file_add(&labels_, 80, "on hook"), 0u);
    EXPECT_EQ(errno, ENOSPC);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    signal(SIGXFSZ, handler);
    EXPECT_EQ(contents("a.txt"), "00000.000000\t00000.000000\toff hook\n");
}

TEST_F(LabelFile, FullFileTakesNoMore) {
    const std::string row = "00000.000000\t00000.000000\toff hook\n";
    labels_.most = 3 * row.size() - 1;
    EXPECT_NE(label_file_add(&labels_, 0, "off hook"), 0u);
    EXPECT_NE(label_file_add(&labels_, 0, "off hook"), 0u);
    EXPECT_EQ(label_file_add(&labels_, 0, "off hook"), 0u);
    EXPECT_EQ(errno, EFBIG);
    EXPECT_EQ(contents("a.txt"), row + row);
}

TEST_F(LabelFile, FileHasOneWriter) {
    label_file other = {};
    EXPECT_EQ(wrong(&other, path("a.txt")), "is being recorded to");
    label_file_close(&labels_);
    EXPECT_EQ(wrong(&other, path("a.txt")), "");
    label_file_close(&other);
}

TEST_F(LabelFile, WhatHasNoLabelsIsLeftAlone) {
    label_file other = {};
    for (const std::string text :
         {"x", "Dear aunt, this is a letter.", "00000.000000\t", "00000.000000\t00000.00000x\ta"}) {
        EXPECT_EQ(wrong(&other, put("b.txt", text)), "is there already and has no labels");
        EXPECT_EQ(contents("b.txt"), text);
    }
    EXPECT_STREQ(label_file_open(&other, path("").c_str()), "is a folder");
    EXPECT_STREQ(label_file_open(&other, "/dev/full"), "is a device, not a file");
}

} // namespace

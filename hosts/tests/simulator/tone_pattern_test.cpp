// SPDX-License-Identifier: MIT
// The text form of tones.
#include "tone_pattern.h"

#include <gtest/gtest.h>

#include <string>

TEST(TonePattern, ReadsWhatTablesWrite) {
    constexpr tone_pattern busy = tone_pattern_read("425/480,0/480");
    static_assert(busy.count == 2);
    EXPECT_EQ(busy.elements[0].first, 425u);
    EXPECT_EQ(busy.elements[0].ms, 480u);
    EXPECT_EQ(busy.elements[1].first, 0u);
    const tone_pattern sum = tone_pattern_read("400+450@-3/400");
    EXPECT_EQ(sum.elements[0].second, 450u);
    EXPECT_FALSE(sum.elements[0].modulates);
    EXPECT_EQ(sum.elements[0].level, -160) << "tenths of dBm0";
    EXPECT_EQ(busy.elements[0].level, -130);
    EXPECT_TRUE(tone_pattern_read("400*16/1000,0/2000").elements[0].modulates);
    EXPECT_EQ(tone_pattern_read("440").elements[0].ms, 0u) << "it does not end";
}

TEST(TonePattern, TheFirstElementsMayBePlayedOnce) {
    const tone_pattern stutter = tone_pattern_read("!425/100,!0/100,425");
    EXPECT_EQ(stutter.count, 3u);
    EXPECT_EQ(stutter.again, 2u);
    EXPECT_EQ(tone_pattern_read("425/100,0/100").again, 0u);
}

TEST(TonePattern, WhatIsNoneIsEmpty) {
    for (const char *text : {"",
                             "x",
                             "-1",
                             "425,0/480",
                             "425/0",
                             "425/60001",
                             "4000",
                             "425+",
                             "425+0",
                             "425+4000",
                             "0+425",
                             "425@",
                             "425@17",
                             "425@-48",
                             "425/480,",
                             "425/480,,0/1",
                             "425 /480",
                             "0",
                             "0/100,0/200",
                             "4294967297",
                             "!425/100",
                             "!425",
                             "425/100,!0/100,425/100",
                             "!!425/100,425",
                             "425/99999999999"})
        EXPECT_EQ(tone_pattern_read(text).count, 0u) << text;
    std::string most = "1/1";
    for (uint32_t i = 1; i < kToneElements; i++)
        most += ",1/1";
    EXPECT_EQ(tone_pattern_read(most.c_str()).count, kToneElements);
    EXPECT_EQ(tone_pattern_read((most + ",1/1").c_str()).count, 0u);
}

TEST(TonePattern, EveryCutIsReadWithinItsBytes) {
    const std::string whole = "400+450@-3/400,0/200,400*16@6/400,0/2000";
    for (size_t size = 0; size < whole.size(); size++) {
        const std::string cut = whole.substr(0, size);
        tone_pattern_read(cut.c_str());
    }
    EXPECT_EQ(tone_pattern_read(whole.c_str()).count, 4u);
}

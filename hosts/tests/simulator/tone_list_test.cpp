// SPDX-License-Identifier: MIT
// Lists of tones as an application orders them.
#include "tone_list.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

const char *read(const std::vector<voice_tone_t> &list, tone_pattern *pattern, int32_t pause_ms = 0) {
    return tone_list_read(list.data(), static_cast<uint32_t>(list.size()), pause_ms, pattern);
}

const char *read_one(voice_tone_t tone) {
    tone_pattern pattern;
    return read({tone}, &pattern);
}

} // namespace

TEST(ToneList, BringsLevelBurstAndPauses) {
    tone_pattern pattern;
    ASSERT_EQ(read({{1400, -100, 200, 50}, {2060, -135, 100, 0}}, &pattern, 30), nullptr);
    ASSERT_EQ(pattern.count, 4u);
    EXPECT_EQ(pattern.again, 0u);
    EXPECT_EQ(pattern.elements[0].first, 1400u);
    EXPECT_EQ(pattern.elements[0].level, -100);
    EXPECT_EQ(pattern.elements[0].ms, 200u);
    EXPECT_EQ(pattern.elements[1].first, 0u);
    EXPECT_EQ(pattern.elements[1].ms, 80u) << "its own pause and that of the list";
    EXPECT_EQ(pattern.elements[2].level, -135);
    EXPECT_EQ(pattern.elements[3].ms, 30u);
}

TEST(ToneList, AFrequencyOfZeroIsAPause) {
    tone_pattern pattern;
    ASSERT_EQ(read({{425, -130, 200, 0}, {0, -130, 300, 100}}, &pattern), nullptr);
    ASSERT_EQ(pattern.count, 2u);
    EXPECT_EQ(pattern.elements[1].first, 0u);
    EXPECT_EQ(pattern.elements[1].ms, 400u);
}

TEST(ToneList, TheLongestFits) {
    tone_pattern pattern;
    ASSERT_EQ(read(std::vector<voice_tone_t>(32, {425, -130, 100, 100}), &pattern, 10), nullptr);
    EXPECT_EQ(pattern.count, kToneElements);
}

TEST(ToneList, WhatCannotBePlayedIsSaid) {
    EXPECT_STREQ(read_one({0, -130, 200, 200}), "plays nothing: the list is silent");
    EXPECT_STREQ(read_one({0, 0, 0, 0}), "plays nothing: the list is silent");
    EXPECT_STREQ(read_one({UINT32_MAX, -130, 200, 200}), "plays nothing: -1 Hz, a line carries 1 to 3400 Hz");
    EXPECT_STREQ(read_one({4000, -130, 200, 200}), "plays nothing: 4000 Hz, a line carries 1 to 3400 Hz");
    EXPECT_STREQ(read_one({425, 200, 200, 200}), "plays nothing: a level of 20.0 dBm0, possible are -60.0 to 3.1");
    EXPECT_STREQ(read_one({425, INT32_MIN, 200, 200}),
                 "plays nothing: a level of -214748364.8 dBm0, possible are -60.0 to 3.1");
    EXPECT_STREQ(read_one({425, -130, 0, 0}), "plays nothing: a tone of 0 ms");
    EXPECT_STREQ(read_one({425, -130, 60001, 0}), "plays nothing: a tone or pause of more than 60000 ms");
    EXPECT_STREQ(read_one({425, -130, 200, UINT32_MAX}), "plays nothing: a tone or pause of more than 60000 ms");
    EXPECT_EQ(read_one({3400, 31, 60000, 60000}), nullptr);
    EXPECT_EQ(read_one({1, -600, 1, 0}), nullptr);
    tone_pattern pattern;
    EXPECT_STREQ(read({}, &pattern), "plays nothing: a list has 1 to 32 tones");
    EXPECT_STREQ(read(std::vector<voice_tone_t>(33, {425, -130, 100, 100}), &pattern),
                 "plays nothing: a list has 1 to 32 tones");
    EXPECT_STREQ(read(std::vector<voice_tone_t>(10000, {425, -130, 100, 100}), &pattern),
                 "plays nothing: a list has 1 to 32 tones");
    EXPECT_STREQ(read(std::vector<voice_tone_t>(32, voice_tone_t{}), &pattern), "plays nothing: the list is silent");
    for (int32_t pause : {-1, 60001, INT32_MIN})
        EXPECT_STREQ(read({{425, -130, 100, 100}}, &pattern, pause), "plays nothing: no such pause between tones");
}

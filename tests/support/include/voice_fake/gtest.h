// SPDX-License-Identifier: MIT
// The fake bus in GoogleTest's words: a fixture that checks after every test, and comparisons that say what differs
// first.
#ifndef VOICE_FAKE_GTEST_H
#define VOICE_FAKE_GTEST_H

#include <gtest/gtest.h>

#include "voice_fake/bus.h"

namespace fake {

// Starts each test with a fresh bus and ends it with its check.
class BusTest : public ::testing::Test {
protected:
    BusTest() { bus().reset(); }

    void TearDown() override {
        for (const std::string &wrong : bus().check())
            ADD_FAILURE() << wrong;
    }
};

inline void expect_lines(const char *file, int line, const std::vector<std::string> &expected,
                         const std::vector<std::string> &got) {
    const std::string wrong = difference(expected, got);
    if (!wrong.empty())
        ADD_FAILURE_AT(file, line) << wrong;
}

} // namespace fake

// EXPECT_LINES(got, "line 1", ...) and, for the common log with and without its markers, EXPECT_LOG("line 1", ...).
#define EXPECT_LINES(got, ...) fake::expect_lines(__FILE__, __LINE__, std::vector<std::string>{__VA_ARGS__}, got)
#define EXPECT_LOG(...) EXPECT_LINES(fake::bus().log(), __VA_ARGS__)
#define EXPECT_LOG_WITHOUT_MARKERS(...) EXPECT_LINES(fake::bus().log_without_markers(), __VA_ARGS__)

#endif

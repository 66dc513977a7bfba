// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <stdio.h>
#include <string>

// What this process writes to standard output while the object lives.
class CapturedOutput {
public:
    CapturedOutput() { testing::internal::CaptureStdout(); }
    ~CapturedOutput() { testing::internal::GetCapturedStdout(); }
    CapturedOutput(const CapturedOutput &) = delete;
    CapturedOutput &operator=(const CapturedOutput &) = delete;

    // Since the last question.
    std::string take() {
        fflush(stdout);
        const std::string text = testing::internal::GetCapturedStdout();
        testing::internal::CaptureStdout();
        return text;
    }
};

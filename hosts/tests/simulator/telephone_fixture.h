// SPDX-License-Identifier: MIT
// A simulated telephone on a clock of the test's own, with a line that writes down what it reports.
#pragma once

#include "captured_output.h"
#include "fake_line.h"
#include "kex_host.h"
#include "telephone.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

using Texts = std::vector<std::string>;

/** What the telephone has reported: "3 off hook". */
extern Texts telephone_reports;

class Telephone : public testing::Test {
protected:
    static void SetUpTestSuite() { bus_ = kex_create("telephone_test"); }
    static void TearDownTestSuite() { kex_destroy(bus_); }

    void SetUp() override {
        sampling_clock_replace([] { return now_; });
        audio_begin(bus_, "telephone_test");
        telephone_begin(&phone_, &line_, 1000);
        telephone_reports.clear();
        output_.emplace();
    }
    void TearDown() override {
        telephone_stop_ringing(&phone_);
        output_.reset();
        sampling_clock_replace(nullptr);
    }

    // Lets time pass on the line, as fast as it goes.
    static void run(uint32_t ms) {
        for (; ms > 0; ms -= 20) {
            now_ += 20000000;
            sampling_clock_advance();
        }
    }

    // What has been said since the last question.
    std::string said() { return output_->take(); }
    const char *play(uint32_t signal, const voice_tone_t *list = nullptr, uint32_t count = 0) {
        const line_tone_t tone = {signal, 0, list, count, 0};
        return driver_.play(&phone_, &tone);
    }
    const char *ring(const uint32_t *cadence = nullptr, uint32_t count = 0, int32_t pattern = -1) {
        const line_ring_t order = {cadence, count, pattern};
        return driver_.ring(&phone_, &order);
    }

    static inline kex_t *bus_;
    static inline uint64_t now_; // nanoseconds
    std::optional<CapturedOutput> output_;
    plugin_line line_ = {3, true};
    // It stays in the list of sounds that the clock drives, for the life of the process.
    static inline telephone phone_;
    const line_driver_t driver_ = telephone_driver();
};

// SPDX-License-Identifier: MIT
// A line with a tone and a voice on it, and what a detector says of it.
#pragma once

#include "g711.h"
#include "sound_detector.h"
#include "tone_player.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// What was said, and after how many ms.
struct word {
    uint32_t ms;
    std::string text;
};

// A line with a tone and a voice on it, through A-law as from a call.
class Heard {
public:
    explicit Heard(const char *country) { sound_detector_begin(&detector_, country); }

    void play(const char *text) {
        const tone_pattern pattern = tone_pattern_read(text);
        ASSERT_GT(pattern.count, 0u) << text;
        tone_player_start(&player_, &pattern);
    }
    void play(const tone_pattern &pattern) { tone_player_start(&player_, &pattern); }
    void stop() { tone_player_stop(&player_); }
    void speak(uint32_t frequency) { voice_ = {frequency, 0}; }
    void run(uint32_t ms) {
        for (uint32_t over = 0; over < ms; over += kStepMs) {
            int16_t samples[kStepSamples] = {};
            if (voice_.frequency > 0)
                tone_generator_next(&voice_, samples, kStepSamples);
            tone_player_add(&player_, samples, kStepSamples);
            for (int16_t &sample : samples)
                sample = g711_alaw_decode(g711_alaw_encode(sample));
            take(samples);
        }
    }
    void run_until(const std::string &name, uint32_t most_ms) {
        for (uint32_t over = 0; over < most_ms && said(name) < 0; over += 100)
            run(100);
    }
    void take(const int16_t *samples) {
        ms_ += kStepMs;
        if (sound_detector_take(&detector_, samples))
            words_.push_back({ms_, detector_.said});
    }
    // When a text was first said that names a tone, or one that is just that; -1: never.
    int said(const std::string &name) const {
        for (const word &one : words_)
            if ((" or " + one.text + " or ").find(" or " + name + " or ") != std::string::npos)
                return static_cast<int>(one.ms);
        return -1;
    }
    std::vector<std::string> all() const {
        std::vector<std::string> texts;
        for (const word &one : words_)
            texts.push_back(one.text);
        return texts;
    }
    std::string last() const { return words_.empty() ? "nothing" : words_.back().text; }
    sound_detector &detector() { return detector_; }
    uint32_t now() const { return ms_; }

private:
    static inline sound_detector detector_;
    tone_player player_ = {};
    tone_generator voice_ = {};
    uint32_t ms_ = 0;
    std::vector<word> words_;
};

// SPDX-License-Identifier: MIT
/**
 * @file heard_line.h
 * A line with a tone and a voice on it, as fast as it goes, and what the tone detector says of it.
 */
#pragma once

#include "country_tones.h"
#include "frame.h"
#include "sound_detector.h"
#include "tone_player.h"

#include "libvoice_plugin.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

constexpr const char *kCountryCodes[] = {"FR", "DE", "GB", "US", "CH", "SE", "IT", "ES", "NL", "BE", "AU", "JP", "BR"};
constexpr uint32_t kNoCodec = UINT32_MAX;

/** How a tone reaches who hears it. */
struct line_way {
    uint32_t codec; // LIBVOICE_CODEC_PCMA, _PCMU, or kNoCodec: as it was made
    int32_t level;  // dB, by which the tone is softer or louder than its table says
    uint32_t voice; // Hz; 0: nobody speaks
};

/** What was said, and after how many ms. */
struct heard_text {
    uint32_t ms;
    std::string text;
};

/** Whether a text names a tone, alone or with others. */
inline bool text_names(const std::string &text, const std::string &name) {
    return (" or " + text + " or ").find(" or " + name + " or ") != std::string::npos;
}

class HeardLine {
public:
    explicit HeardLine(const char *country, const line_way &way = {kNoCodec, 0, 0}) : way_(way) {
        sound_detector_begin(&detector_, country);
        speak(way.voice);
    }
    void play(const tone_pattern &pattern) { tone_player_start(&player_, &pattern); }
    void play(const char *text) { play(tone_pattern_read(text)); }
    void stop() { tone_player_stop(&player_); }
    void speak(uint32_t frequency) { voice_ = {frequency, 0}; }
    void run(uint32_t ms) {
        const float factor = std::pow(10.0F, static_cast<float>(way_.level) / 20);
        for (uint32_t over = 0; over < ms; over += kStepMs) {
            int16_t samples[kStepSamples] = {};
            tone_player_add(&player_, samples, kStepSamples);
            if (way_.level != 0)
                frame_scale(samples, kStepSamples, factor);
            if (voice_.frequency > 0) {
                int16_t voice[kStepSamples];
                tone_generator_next(&voice_, voice, kStepSamples);
                frame_add(samples, voice, kStepSamples);
            }
            take(samples);
        }
    }
    /** Runs until a text names a tone, at most for so long. */
    void run_until(const std::string &name, uint32_t most_ms) {
        const uint32_t from = ms_;
        while (ms_ - from < most_ms && said(name, from) < 0)
            run(kStepMs);
    }
    /** Hears samples of the caller's own, through the codec. */
    void take(const int16_t *samples) {
        int16_t came[kStepSamples];
        uint8_t payload[kStepSamples];
        std::copy(samples, samples + kStepSamples, came);
        if (way_.codec != kNoCodec) {
            frame_encode(way_.codec, samples, kStepSamples, payload);
            frame_decode(way_.codec, payload, kStepSamples, came);
        }
        ms_ += kStepMs;
        if (sound_detector_take(&detector_, came))
            texts_.push_back({ms_, detector_.said});
    }
    /** When a tone was first named behind a moment, in ms; -1: never. */
    int said(const std::string &name, uint32_t from = 0) const {
        for (const heard_text &one : texts_)
            if (one.ms > from && text_names(one.text, name))
                return static_cast<int>(one.ms);
        return -1;
    }
    /** All that was said, in order. */
    std::vector<std::string> all() const {
        std::vector<std::string> texts;
        for (const heard_text &one : texts_)
            texts.push_back(one.text);
        return texts;
    }
    const std::vector<heard_text> &texts() const { return texts_; }
    std::string last() const { return texts_.empty() ? "nothing" : texts_.back().text; }
    uint32_t now() const { return ms_; }

private:
    static inline sound_detector detector_;
    line_way way_;
    tone_player player_ = {};
    tone_generator voice_ = {};
    uint32_t ms_ = 0;
    std::vector<heard_text> texts_;
};

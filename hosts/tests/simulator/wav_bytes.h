// SPDX-License-Identifier: MIT
// WAV files written down byte by byte, apart from the code under test.
#pragma once

#include <stdint.h>
#include <string>

inline std::string le(uint32_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; i++)
        text.push_back(static_cast<char>(value >> 8 * i));
    return text;
}

inline std::string chunk(const std::string &kind, const std::string &body) {
    return kind + le(static_cast<uint32_t>(body.size()), 4) + body + std::string(body.size() % 2, '\0');
}

struct WavBytes {
    uint32_t coding = 1, channels = 1, rate = 8000, bits = 16;
    std::string before = {}; // chunks before the samples

    std::string format() const {
        const uint32_t frame = channels * bits / 8;
        return chunk("fmt ",
                     le(coding, 2) + le(channels, 2) + le(rate, 4) + le(rate * frame, 4) + le(frame, 2) + le(bits, 2));
    }
    std::string file(const std::string &sound) const {
        const std::string body = "WAVE" + format() + before + chunk("data", sound);
        return "RIFF" + le(static_cast<uint32_t>(body.size()), 4) + body;
    }
};

inline std::string sound_of(std::initializer_list<int> samples) {
    std::string bytes;
    for (int sample : samples)
        bytes += le(static_cast<uint32_t>(sample), 2);
    return bytes;
}

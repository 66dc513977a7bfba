// SPDX-License-Identifier: MIT
#include "tone.h"

#include "g711.h"

#include <gtest/gtest.h>

namespace {

constexpr uint32_t kFrameSamples = 160; // 20 ms

// What a detector names when it is given these tones together, through A-law if asked.
std::string heard(std::initializer_list<uint32_t> frequencies, bool companded = false) {
    static tone_detector detector;
    detector = {};
    std::vector<tone_generator> tones;
    for (uint32_t frequency : frequencies)
        tones.push_back({frequency, 0});
    bool full = false;
    for (int frame = 0; frame < 10; frame++) {
        EXPECT_FALSE(full) << "200 ms are ten frames";
        int16_t mix[kFrameSamples] = {};
        for (tone_generator &one : tones) {
            int16_t samples[kFrameSamples];
            tone_generator_next(&one, samples, kFrameSamples);
            for (uint32_t i = 0; i < kFrameSamples; i++)
                mix[i] = static_cast<int16_t>(mix[i] + samples[i]);
        }
        for (int16_t &sample : mix)
            sample = companded ? g711_alaw_decode(g711_alaw_encode(sample)) : sample;
        full = tone_detector_listen(&detector, mix, kFrameSamples);
    }
    EXPECT_TRUE(full);
    char name[48];
    uint32_t found[kDetectorTones];
    const uint32_t count = tone_detector_find(&detector, found);
    tone_frequencies_write(found, count, name, sizeof name);
    return name;
}

} // namespace

TEST(ToneDetector, NamesEveryToneThatHostsSend) {
    for (uint32_t frequency = kDetectorLowest; frequency <= kDetectorHighest; frequency += kDetectorStep)
        EXPECT_EQ(heard({frequency}, true), std::to_string(frequency) + "Hz");
}

TEST(ToneDetector, NamesWhatNetworksPlay) {
    for (uint32_t frequency : kNetworkTones)
        EXPECT_EQ(heard({frequency}, true), std::to_string(frequency) + "Hz");
    EXPECT_EQ(heard({425, 500}, true), "425Hz+500Hz");
    EXPECT_EQ(heard({350, 440}, true), "350Hz+440Hz");
    EXPECT_EQ(heard({480, 620}, true), "480Hz+620Hz");
}

TEST(ToneDetector, TellsTonesApart) {
    EXPECT_EQ(heard({440, 400}, true), "400Hz+440Hz");
    EXPECT_EQ(heard({400, 600, 640}, true), "400Hz+600Hz+640Hz");
}

TEST(ToneFrequencies, AreCutAtAWholeOne) {
    const uint32_t frequencies[] = {440, 1000, 2200};
    char text[12];
    tone_frequencies_write(frequencies, 3, text, sizeof text);
    EXPECT_STREQ(text, "440Hz");
    tone_frequencies_write(frequencies, 0, text, sizeof text);
    EXPECT_STREQ(text, "");
}

TEST(ToneDetector, HearsNothingInSilence) {
    EXPECT_EQ(heard({}), "");
    EXPECT_EQ(heard({}, true), "") << "A-law has no zero";
}

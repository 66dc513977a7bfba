// SPDX-License-Identifier: MIT
#include "tone.h"

#include "g711.h"

#include <gtest/gtest.h>

namespace {

// What an ear names when it hears these tones together, through A-law if asked.
std::string heard(std::initializer_list<uint32_t> frequencies, bool companded = false) {
    static ear listener;
    listener = {};
    std::vector<tone> tones;
    for (uint32_t frequency : frequencies)
        tones.push_back({frequency, 0});
    bool full = false;
    for (int frame = 0; frame < 10; frame++) {
        EXPECT_FALSE(full) << "200 ms are ten frames";
        int16_t mix[kFrameSamples] = {};
        for (tone &one : tones) {
            int16_t samples[kFrameSamples];
            tone_next(&one, samples, kFrameSamples);
            for (uint32_t i = 0; i < kFrameSamples; i++)
                mix[i] = static_cast<int16_t>(mix[i] + samples[i]);
        }
        for (int16_t &sample : mix)
            sample = companded ? g711_alaw_decode(g711_alaw_encode(sample)) : sample;
        full = ear_listen(&listener, mix, kFrameSamples);
    }
    EXPECT_TRUE(full);
    char name[48];
    ear_name(&listener, name, sizeof name);
    return name;
}

} // namespace

TEST(Ear, NamesEveryToneThatHostsSend) {
    for (uint32_t frequency = kEarLowest; frequency <= kEarHighest; frequency += kEarStep)
        EXPECT_EQ(heard({frequency}, true), std::to_string(frequency) + "Hz");
}

TEST(Ear, TellsTonesApart) {
    EXPECT_EQ(heard({440, 400}, true), "400Hz+440Hz");
    EXPECT_EQ(heard({400, 600, 640}, true), "400Hz+600Hz+640Hz");
}

TEST(Ear, HearsNothingInSilence) {
    EXPECT_EQ(heard({}), "");
    EXPECT_EQ(heard({}, true), "") << "A-law has no zero";
}

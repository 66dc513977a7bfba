// SPDX-License-Identifier: MIT
// What is no tone of the network, and must not be taken for one: silence, noise, speech, keys, modems, other frequencies.
#include "country_cases.h"
#include "heard_line.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

constexpr double kTurn = 6.283185307179586;

// Numbers by chance, the same on every machine.
class Chance {
public:
    explicit Chance(uint32_t seed) : seed_(seed) {}
    double below(double most) {
        seed_ = seed_ * 1664525 + 1013904223;
        return most * (seed_ >> 8) / 16777216.0;
    }
    double normal() {
        double sum = -6;
        for (int i = 0; i < 12; i++)
            sum += below(1);
        return sum;
    }

private:
    uint32_t seed_;
};

double sine(double frequency, uint32_t sample) {
    return std::sin(kTurn * frequency * sample / kSampleRate);
}

// A speaker: pulses of a pitch that glides, through three resonances that move from syllable to syllable.
class Speech {
public:
    explicit Speech(uint32_t seed) : chance_(seed), pitch_(85 + 11.0 * seed), usual_(pitch_) {}
    double next() {
        if (left_-- == 0)
            syllable();
        pitch_ += (wanted_pitch_ - pitch_) / 800;
        wanted_pitch_ += slope_ / kSampleRate;
        loudness_ += (wanted_loudness_ - loudness_) / 200;
        phase_ += pitch_ / kSampleRate;
        double source = 0.01 * chance_.normal();
        if (phase_ >= 1) {
            phase_ -= 1;
            source += 1;
        }
        double sum = 0;
        for (int i = 0; i < 3; i++) {
            resonance_[i] += (wanted_[i] - resonance_[i]) / 400;
            const double radius = std::exp(-kTurn / 2 * (80 + 40 * i) / kSampleRate);
            const double now = source + 2 * radius * std::cos(kTurn * resonance_[i] / kSampleRate) * last_[i] -
                               radius * radius * before_[i];
            before_[i] = last_[i];
            last_[i] = now;
            sum += i == 0 ? now : 0.6 * now;
        }
        return 4000 * loudness_ * sum;
    }

private:
    void syllable() {
        left_ = 640 + static_cast<uint32_t>(chance_.below(2400)); // 80 to 380 ms
        wanted_[0] = 300 + chance_.below(500);
        wanted_[1] = 900 + chance_.below(1300);
        wanted_[2] = 2200 + chance_.below(800);
        wanted_loudness_ = chance_.below(1) < 0.25 ? 0 : 0.4 + chance_.below(0.6);
        wanted_pitch_ = usual_ * (0.85 + chance_.below(0.4));
        slope_ = chance_.below(25) - 15;
    }

    Chance chance_;
    double pitch_, usual_, wanted_pitch_ = pitch_, slope_ = 0, phase_ = 0;
    double loudness_ = 0, wanted_loudness_ = 1;
    double resonance_[3] = {500, 1500, 2500}, wanted_[3] = {500, 1500, 2500};
    double last_[3] = {}, before_[3] = {};
    uint32_t left_ = 0;
};

// A modem of 1,200 bit/s: seizure, mark, and bits by chance, as a caller display has them.
class Modem {
public:
    Modem(double mark, double space) : mark_(mark), space_(space) {}
    double next() {
        const uint32_t bit = sample_++ * 3 / 20; // 6.67 samples each
        if (bit != bit_)
            one_ = bit < 300 ? bit % 2 == 1 : bit < 480 || chance_.below(2) < 1;
        bit_ = bit;
        phase_ += (one_ ? mark_ : space_) / kSampleRate;
        return 6000 * std::sin(kTurn * phase_);
    }

private:
    double mark_, space_, phase_ = 0;
    Chance chance_{3};
    uint32_t sample_ = 0, bit_ = UINT32_MAX;
    bool one_ = false;
};

using Sound = std::function<double(uint32_t)>;
// Countries of which each has frequencies that the others have not; a tone that is wrong in another one is wrong here.
constexpr const char *kFrequencySets[] = {"FR", "GB", "US", "SE", "IT", "AU", "JP"};

class NoTone : public testing::Test {
protected:
    // What a line in a country says of samples.
    static std::vector<std::string> heard(const char *country, const std::vector<int16_t> &samples) {
        HeardLine line(country, {LIBVOICE_CODEC_PCMA, 0, 0});
        for (size_t at = 0; at + kStepSamples <= samples.size(); at += kStepSamples)
            line.take(samples.data() + at);
        return line.all();
    }
    static std::vector<int16_t> made(uint32_t ms, const Sound &sound) {
        std::vector<int16_t> samples(ms * (kSampleRate / 1000));
        for (uint32_t at = 0; at < samples.size(); at++)
            samples[at] = static_cast<int16_t>(std::clamp(sound(at), -32768.0, 32767.0));
        return samples;
    }
    static void expect_no_tone(const std::string &what, uint32_t ms, const Sound &sound) {
        const std::vector<int16_t> samples = made(ms, sound);
        for (const char *country : kFrequencySets)
            for (const std::string &text : heard(country, samples))
                for (uint32_t tone = 0; tone < TONES; tone++)
                    EXPECT_FALSE(text_names(text, tone_word(tone))) << country << ", " << what << ": " << text;
    }
    static void expect_other(const char *country, uint32_t tone, const tone_pattern &pattern, const char *what) {
        HeardLine line(country);
        line.play(pattern);
        line.run(std::min(2 * period_of(pattern) + 2000, 6000u));
        EXPECT_EQ(line.said(tone_word(tone)), -1) << country << ", " << tone_word(tone) << ", " << what;
    }
};

} // namespace

TEST_F(NoTone, SilenceAndALeastSound) {
    for (const char *country : kCountryCodes) {
        EXPECT_EQ(heard(country, made(3000, [](uint32_t) { return 0; })), std::vector<std::string>());
        EXPECT_EQ(heard(country, made(3000, [](uint32_t at) { return at % 2 == 0 ? 8 : -8; })),
                  std::vector<std::string>());
    }
}

TEST_F(NoTone, NoiseOfAnyLevel) {
    for (double level : {50.0, 500.0, 3000.0, 8000.0}) {
        Chance chance(7);
        expect_no_tone("noise", 6000, [&](uint32_t) { return level * chance.normal(); });
    }
}

TEST_F(NoTone, Speech) {
    for (uint32_t seed = 0; seed < 16; seed += 3) { // a deep voice and higher ones
        Speech speech(seed);
        expect_no_tone("speaker " + std::to_string(seed), 10000, [&](uint32_t) { return speech.next(); });
    }
}

TEST_F(NoTone, Keys) {
    constexpr double kRows[] = {697, 770, 852, 941}, kColumns[] = {1209, 1336, 1477, 1633};
    for (uint32_t ms : {50u, 100u, 200u})
        for (uint32_t key = 0; key < 16; key++)
            expect_no_tone("key " + std::to_string(key), 4 * ms, [&](uint32_t sample) {
                const bool sounds = sample / 8 % (2 * ms) < ms;
                return sounds ? 4500 * (sine(kRows[key / 4], sample) + sine(kColumns[key % 4], sample)) : 0;
            });
}

TEST_F(NoTone, ACallerDisplay) {
    Modem v23(1300, 2100), bell202(1200, 2200);
    expect_no_tone("V.23", 2000, [&](uint32_t) { return v23.next(); });
    expect_no_tone("Bell 202", 2000, [&](uint32_t) { return bell202.next(); });
}

TEST_F(NoTone, AFrequencyThatMovesOrIsAnotherOne) {
    expect_no_tone("moves", 6000, [](uint32_t sample) {
        const double second = sample / double{kSampleRate};
        return 6000 * std::sin(kTurn * (300 * second + 250 * second * second));
    });
    for (double frequency : {50.0, 100.0, 500.0, 1004.0, 2100.0})
        expect_no_tone("sine", 2000, [&](uint32_t sample) { return 6000 * sine(frequency, sample); });
}

TEST_F(NoTone, ATonesCadenceWithAnotherFrequency) {
    for (const char *country : kFrequencySets)
        for (uint32_t tone = 0; tone < TONES; tone++) {
            tone_pattern beside = tone_of(country, tone);
            for (tone_element &element : beside.elements)
                element.first += element.first > 0 ? 6 : 0;
            expect_other(country, tone, beside, "6 Hz beside");
        }
}

// A sum that no other tone has is named within its first burst, however long that becomes.
TEST_F(NoTone, ATonesFrequencyInBurstsTwiceAsLong) {
    for (const char *country : kCountryCodes)
        for (uint32_t tone = 0; tone < TONES; tone++) {
            tone_pattern longer = tone_of(country, tone);
            uint32_t continuous = 0, sums = 0;
            for (uint32_t i = 0; i < longer.count; i++) {
                continuous += longer.elements[i].ms == 0;
                sums += longer.elements[i].second;
                longer.elements[i].ms *= longer.elements[i].first > 0 ? 2 : 1;
            }
            if (continuous + sums == 0)
                expect_other(country, tone, longer, "longer bursts");
        }
}

// SPDX-License-Identifier: MIT
#include "fsk.h"

#include <gtest/gtest.h>

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// 0x80, 8 bytes of items: calling number "101" and a reason for absence; then the plain sum, as blocks travel.
constexpr char kText[] = "8008020331303104014F73";
constexpr uint32_t kTextBytes = 11;

class Wav : public testing::Test {
protected:
    Wav() {
        char name[] = "/tmp/hosts-fsk-XXXXXX";
        close(mkstemp(name));
        path_ = name;
    }
    ~Wav() override { unlink(path_.c_str()); }

    std::vector<uint8_t> bytes() const {
        FILE *file = fopen(path_.c_str(), "rb");
        std::vector<uint8_t> all(1 << 20);
        all.resize(fread(all.data(), 1, all.size(), file));
        fclose(file);
        return all;
    }

    std::string path_;
};

double power(const std::vector<double> &samples, size_t from, size_t count, double frequency) {
    double re = 0, im = 0;
    for (size_t i = 0; i < count; i++) {
        double angle = 2 * M_PI * frequency * static_cast<double>(i) / 48000;
        re += samples[from + i] * cos(angle);
        im += samples[from + i] * sin(angle);
    }
    return re * re + im * im;
}

// A demodulator of its own: which of the two frequencies is louder in each bit; then bytes between start and stop bits.
std::vector<uint8_t> demodulate(const std::vector<uint8_t> &wav, const fsk_modem &modem) {
    constexpr size_t kBit = 40; // samples
    std::vector<double> samples;
    for (size_t at = 44; at + 1 < wav.size(); at += 2)
        samples.push_back(static_cast<int16_t>(wav[at] | wav[at + 1] << 8));
    size_t start = 0;
    while (start < samples.size() && fabs(samples[start]) < 1)
        start++;
    start--; // a sine begins with zero
    std::vector<bool> bits;
    for (size_t at = start; at + kBit <= samples.size() && fabs(samples[at + 3]) + fabs(samples[at + 9]) > 0;
         at += kBit)
        bits.push_back(power(samples, at, kBit, modem.mark) > power(samples, at, kBit, modem.space));
    for (size_t i = 0; i < 300; i++)
        EXPECT_EQ(bits[i], i % 2 == 1) << "channel seizure, bit " << i;
    for (size_t i = 300; i < 480; i++)
        EXPECT_TRUE(bits[i]) << "mark, bit " << i;
    std::vector<uint8_t> bytes;
    size_t at = 480;
    while (at + 10 <= bits.size() && !bits[at]) {
        uint8_t byte = 0;
        for (size_t i = 0; i < 8; i++)
            byte = static_cast<uint8_t>(byte | bits[at + 1 + i] << i);
        EXPECT_TRUE(bits[at + 9]) << "stop bit";
        bytes.push_back(byte);
        at += 10;
    }
    return bytes;
}

} // namespace

TEST(LineBlock, EndsInTheTwosComplement) {
    uint8_t block[kBlockBytes];
    ASSERT_EQ(fsk_line_block(kText, block), kTextBytes);
    EXPECT_EQ(block[0], 0x80);
    EXPECT_EQ(block[kTextBytes - 1], 0x100 - 0x73);
    uint8_t sum = 0;
    for (uint32_t i = 0; i < kTextBytes; i++)
        sum = static_cast<uint8_t>(sum + block[i]);
    EXPECT_EQ(sum, 0) << "what a display checks";
}

TEST(LineBlock, WhatIsNoBlockIsRefused) {
    uint8_t block[kBlockBytes];
    EXPECT_EQ(fsk_line_block("", block), 0u);
    EXPECT_EQ(fsk_line_block("8000", block), 0u) << "too short";
    EXPECT_EQ(fsk_line_block("8008020331303104014F74", block), 0u) << "wrong sum";
    EXPECT_EQ(fsk_line_block("8009020331303104014F73", block), 0u) << "wrong length";
    EXPECT_EQ(fsk_line_block("80080203313031040 4F73", block), 0u) << "no digit";
    EXPECT_EQ(fsk_line_block("8008020331303104014F6", block), 0u) << "half a byte";
    EXPECT_EQ(fsk_line_block(std::string(2 * kBlockBytes + 2, '0').c_str(), block), 0u) << "too long";
}

TEST_F(Wav, DemodulatesToTheBlock) {
    uint8_t block[kBlockBytes];
    uint32_t length = fsk_line_block(kText, block);
    for (const fsk_modem &modem : {kV23, kBell202}) {
        ASSERT_TRUE(fsk_write_wav(path_.c_str(), &modem, block, length)) << strerror(errno);
        std::vector<uint8_t> read = demodulate(bytes(), modem);
        EXPECT_EQ(read, std::vector<uint8_t>(block, block + length)) << modem.name;
    }
}

TEST_F(Wav, HeadCountsTheSamples) {
    const uint8_t block[] = {0x80, 0x00, 0x80};
    ASSERT_TRUE(fsk_write_wav(path_.c_str(), &kV23, block, sizeof block));
    std::vector<uint8_t> wav = bytes();
    uint32_t samples = 2 * 4800 + (300 + 180 + 3 * 10 + 10) * 40;
    ASSERT_EQ(wav.size(), 44 + 2 * samples);
    EXPECT_EQ(std::string(wav.begin(), wav.begin() + 4), "RIFF");
    EXPECT_EQ(wav[40] | wav[41] << 8 | wav[42] << 16, static_cast<int>(2 * samples));
}

TEST(WavFile, ReportsWhatItCannotWrite) {
    const uint8_t block[] = {0x80, 0x00, 0x80};
    EXPECT_FALSE(fsk_write_wav("/nowhere/at/all.wav", &kV23, block, sizeof block));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(fsk_write_wav("/dev/full", &kV23, block, sizeof block)) << "a full disk";
}

// A decoder that is not ours, where it is installed.
TEST_F(Wav, MinimodemReadsIt) {
    if (system("command -v minimodem >/dev/null") != 0)
        GTEST_SKIP() << "minimodem is not installed";
    uint8_t block[kBlockBytes];
    uint32_t length = fsk_line_block("800F010830313031303230330203313031B6", block);
    ASSERT_EQ(length, 18u);
    for (const fsk_modem &modem : {kV23, kBell202}) {
        ASSERT_TRUE(fsk_write_wav(path_.c_str(), &modem, block, length));
        std::string command = "minimodem --rx -q -M " + std::to_string(modem.mark) + " -S " +
                              std::to_string(modem.space) + " -f " + path_ + " callerid 2>/dev/null";
        FILE *output = popen(command.c_str(), "r");
        char text[512] = "";
        size_t got = fread(text, 1, sizeof text - 1, output);
        pclose(output);
        text[got] = 0;
        EXPECT_NE(strstr(text, "Time:  01/01 02:03"), nullptr) << modem.name << ": " << text;
        EXPECT_NE(strstr(text, "Phone: 101"), nullptr) << modem.name << ": " << text;
    }
}

// SPDX-License-Identifier: MIT
// WAV files that are taken, and a sentence for each that is not.
#include "wav_reader.h"

#include "g711.h"
#include "scratch_folder.h"
#include "wav_bytes.h"

#include <fcntl.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using Samples = std::vector<int16_t>;

class WavReader : public ScratchFolder {
protected:
    ~WavReader() override { wav_reader_close(&reader_); }

    // What is wrong with a file; empty: nothing.
    std::string wrong(const std::string &path) {
        const char *said = wav_reader_open(&reader_, path.c_str());
        EXPECT_EQ(reader_.open, said == nullptr);
        return said == nullptr ? "" : said;
    }
    std::string wrong_bytes(const std::string &bytes) { return wrong(put("a.wav", bytes)); }
    Samples next(uint32_t count) {
        Samples samples(count);
        samples.resize(wav_reader_next(&reader_, samples.data(), count));
        return samples;
    }

    wav_reader reader_ = {};
};

TEST_F(WavReader, GivesEachSampleInTurn) {
    EXPECT_EQ(wrong_bytes(WavBytes().file(sound_of({1, -2, 32767, -32768, 300}))), "");
    EXPECT_EQ(wav_reader_length(&reader_), 5u);
    EXPECT_EQ(next(2), (Samples{1, -2}));
    EXPECT_EQ(next(80), (Samples{32767, -32768, 300}));
    EXPECT_FALSE(reader_.open);
    EXPECT_EQ(reader_.wrong, nullptr);
    EXPECT_EQ(next(80), Samples());
}

TEST_F(WavReader, SamplesAreTheSameAcrossPieces) {
    std::string sound;
    Samples all;
    for (int i = 0; i < 10000; i++) {
        all.push_back(static_cast<int16_t>(i * 7 - 20000));
        sound += sound_of({i * 7 - 20000});
    }
    ASSERT_EQ(wrong_bytes(WavBytes().file(sound)), "");
    Samples got;
    for (Samples part = next(77); !part.empty(); part = next(77))
        got.insert(got.end(), part.begin(), part.end());
    EXPECT_EQ(got, all);
}

TEST_F(WavReader, TakesALawAndULaw) {
    WavBytes law;
    law.bits = 8;
    law.coding = 6;
    EXPECT_EQ(wrong_bytes(law.file("\x2A\xD5\x01")), "");
    EXPECT_EQ(next(9), (Samples{g711_alaw_decode(0x2A), g711_alaw_decode(0xD5), g711_alaw_decode(1)}));
    law.coding = 7;
    EXPECT_EQ(wrong_bytes(law.file("\x2A\xD5")), "");
    EXPECT_EQ(next(9), (Samples{g711_ulaw_decode(0x2A), g711_ulaw_decode(0xD5)}));
}

TEST_F(WavReader, PassesOverOtherChunks) {
    WavBytes wav;
    wav.before = chunk("LIST", "odd") + chunk("fact", le(1, 4));
    EXPECT_EQ(wrong_bytes(wav.file(sound_of({7}))), "");
    EXPECT_EQ(next(9), (Samples{7}));
}

TEST_F(WavReader, TakesTheCodingThatAnExtensibleHeadNames) {
    const auto file = [](uint32_t coding) {
        const std::string format =
            chunk("fmt ", le(0xFFFE, 2) + le(1, 2) + le(8000, 4) + le(16000, 4) + le(2, 2) + le(16, 2) + le(22, 2) +
                              le(16, 2) + le(4, 4) + le(coding, 2) + std::string(14, '\0'));
        return "RIFF" + le(0, 4) + "WAVE" + format + chunk("data", sound_of({7}));
    };
    EXPECT_EQ(wrong_bytes(file(1)), "");
    EXPECT_EQ(next(9), (Samples{7}));
    EXPECT_EQ(wrong_bytes(file(0x55)),
              "is coding 85 16 bit, 1 channel, 8000 Hz: wanted is PCM 16 bit, 1 channel, 8000 Hz (or A-law, u-law)");
}

constexpr char kWanted[] = ": wanted is PCM 16 bit, 1 channel, 8000 Hz (or A-law, u-law)";

TEST_F(WavReader, OtherFormatsAreNamed) {
    const auto said = [this](uint32_t coding, uint32_t bits, uint32_t channels, uint32_t rate) {
        return wrong_bytes(WavBytes{coding, channels, rate, bits}.file(std::string(64, 'x')));
    };
    EXPECT_EQ(said(1, 16, 2, 8000), std::string("is PCM 16 bit, 2 channels, 8000 Hz") + kWanted);
    EXPECT_EQ(said(1, 16, 1, 44100), std::string("is PCM 16 bit, 1 channel, 44100 Hz") + kWanted);
    EXPECT_EQ(said(1, 8, 1, 8000), std::string("is PCM 8 bit, 1 channel, 8000 Hz") + kWanted);
    EXPECT_EQ(said(1, 24, 1, 8000), std::string("is PCM 24 bit, 1 channel, 8000 Hz") + kWanted);
    EXPECT_EQ(said(3, 32, 1, 8000), std::string("is floating point 32 bit, 1 channel, 8000 Hz") + kWanted);
    EXPECT_EQ(said(6, 16, 1, 8000), std::string("is A-law 16 bit, 1 channel, 8000 Hz") + kWanted);
    EXPECT_EQ(said(0x55, 0, 1, 8000), std::string("is coding 85 0 bit, 1 channel, 8000 Hz") + kWanted);
    EXPECT_EQ(said(1, 16, 0, 0), std::string("is PCM 16 bit, 0 channels, 0 Hz") + kWanted);
}

TEST_F(WavReader, WhatIsNoWavFileIsRefused) {
    EXPECT_EQ(wrong_bytes(""), "is empty");
    EXPECT_EQ(wrong_bytes("R"), "is no WAV file (RIFF/WAVE)");
    EXPECT_EQ(wrong_bytes("This is a letter to an aunt."), "is no WAV file (RIFF/WAVE)");
    EXPECT_EQ(wrong_bytes("RIFF" + le(4, 4) + "AVI "), "is no WAV file (RIFF/WAVE)");
    EXPECT_EQ(wrong_bytes("RIFF" + le(4, 4) + "WAVE"), "is cut: its head ends early");
    EXPECT_EQ(wrong_bytes("RIFF" + le(4, 4) + "WAVE" + chunk("data", "ab") + WavBytes().format()),
              "is no WAV file: its samples come before their format");
    std::string many = "RIFF" + le(4, 4) + "WAVE";
    for (int i = 0; i < 100; i++)
        many += chunk("junk", "");
    EXPECT_EQ(wrong_bytes(many), "is no WAV file: more than 64 chunks before its sound");
    EXPECT_EQ(wrong(path("missing.wav")), strerror(ENOENT));
}

TEST_F(WavReader, CutAtAnyByteItIsRefused) {
    const std::string whole = WavBytes().file(sound_of({1, 2, 3, 4}));
    for (size_t size = 0; size < whole.size(); size++)
        EXPECT_NE(wrong_bytes(whole.substr(0, size)), "") << size;
    EXPECT_EQ(wrong_bytes(whole.substr(0, whole.size() - 3)), "is cut: 5 of 8 bytes of sound are there");
    EXPECT_EQ(wrong_bytes(whole.substr(0, 40)), "is cut: it ends before its sound");
    EXPECT_EQ(wrong_bytes(whole.substr(0, 30)), "is cut: its head ends early");
    EXPECT_EQ(wrong_bytes(WavBytes().file("")), "holds no sound");
}

// Programs that write to a pipe do not know the length.
TEST_F(WavReader, UnknownLengthIsThatOfTheFile) {
    std::string bytes = WavBytes().file(sound_of({1, 2}));
    for (uint32_t unknown : {0xFFFFFFFFu, 0x7FFFFFFFu, 0x7FFFF000u, 0x7FFF0000u}) {
        bytes.replace(40, 4, le(unknown, 4));
        EXPECT_EQ(wrong_bytes(bytes), "");
        EXPECT_EQ(next(9), (Samples{1, 2}));
    }
}

TEST_F(WavReader, LengthsOfChunksDoNotWrap) {
    const std::string head = "RIFF" + le(4, 4) + "WAVE";
    EXPECT_EQ(wrong_bytes(head + "LIST" + le(0xFFFFFFFF, 4) + WavBytes().format()), "is cut: it ends before its sound");
    EXPECT_EQ(wrong_bytes(head + "LIST" + le(0xFFFFFFF8, 4) + WavBytes().format()), "is cut: it ends before its sound");
    EXPECT_EQ(wrong_bytes(head + "fmt " + le(0, 4)), "is cut: its head ends early");
}

// Its size takes no memory and no time: what is not read costs nothing.
TEST_F(WavReader, ThreeGigabytesArePlayedLikeAnyOther) {
    std::string head = WavBytes().file("");
    head.replace(40, 4, le(3000000000u, 4));
    put("large.wav", head + sound_of({5}));
    if (truncate(path("large.wav").c_str(), static_cast<off_t>(3000000044LL)) != 0)
        GTEST_SKIP() << "no file of 3 GB here: " << strerror(errno);
    EXPECT_EQ(wrong(path("large.wav")), "");
    EXPECT_EQ(wav_reader_length(&reader_), 1500000000u);
    EXPECT_EQ(next(2), (Samples{5, 0}));
    // The same without a head.
    put("zeros.wav", std::string(1, '\0'));
    ASSERT_EQ(truncate(path("zeros.wav").c_str(), static_cast<off_t>(3000000044LL)), 0);
    EXPECT_EQ(wrong(path("zeros.wav")), "is no WAV file (RIFF/WAVE)");
}

TEST_F(WavReader, OnlyPlainFilesAreOpened) {
    EXPECT_EQ(wrong(path("")), "is a folder");
    EXPECT_EQ(wrong("/dev/zero"), "is a device, not a file");
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(wrong(path("pipe")), "is a pipe or a socket, not a file"); // and does not wait for who writes
    EXPECT_EQ(wrong(std::string(5000, 'x')), strerror(ENAMETOOLONG));
}

TEST_F(WavReader, FileThatIsCutWhileItIsReadEndsWithAReason) {
    ASSERT_EQ(wrong_bytes(WavBytes().file(std::string(20000, 'x'))), "");
    EXPECT_EQ(next(80).size(), 80u);
    ASSERT_EQ(truncate(path("a.wav").c_str(), 6044), 0);
    EXPECT_EQ(next(10000).size(), 3000u - 80);
    EXPECT_FALSE(reader_.open);
    EXPECT_STREQ(reader_.wrong, "it was cut while it was read");
}

TEST_F(WavReader, FileThatIsRemovedIsReadToItsEnd) {
    ASSERT_EQ(wrong_bytes(WavBytes().file(std::string(20000, 'x'))), "");
    ASSERT_EQ(unlink(path("a.wav").c_str()), 0);
    EXPECT_EQ(next(20000).size(), 10000u);
    EXPECT_EQ(reader_.wrong, nullptr);
}

TEST_F(WavReader, NothingStaysOpen) {
    const int first = dup(0);
    close(first);
    for (const std::string &name : {path("missing.wav"), put("a.wav", ""), path(""), put("b.wav", "RIFF")})
        wrong(name);
    EXPECT_EQ(wrong(put("c.wav", WavBytes().file(sound_of({1})))), "");
    next(9);
    const int last = dup(0);
    EXPECT_EQ(last, first);
    close(last);
}

} // namespace

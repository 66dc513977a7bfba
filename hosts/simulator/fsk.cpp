// SPDX-License-Identifier: MIT
// Caller display as sound. What goes onto the line: 300 bits of alternating zeros and ones, 180 ones, then the bytes of
// the block, each with a start bit 0, eight bits from the lowest on, and a stop bit 1.
#include "fsk.h"

#include "little_endian.h"
#include "wav_format.h"

#include <ctype.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr double kTurn = 6.283185307179586;
constexpr double kAmplitude = 12000;
constexpr uint32_t kBitRate = 1200;
constexpr uint32_t kSeizureBits = 300;
constexpr uint32_t kMarkBits = 180;
constexpr uint32_t kSilence = kWavRate / 10; // before and after, in samples
static_assert(kWavRate % kBitRate == 0, "each bit takes the same whole number of samples");

struct writer {
    FILE *file;
    const fsk_modem *modem;
    double phase;
    uint32_t samples;
};

void put_sample(writer *out, double sample) {
    uint8_t bytes[2];
    put_le16(bytes, static_cast<uint16_t>(static_cast<int16_t>(sample)));
    fwrite(bytes, 1, sizeof bytes, out->file);
    out->samples++;
}

void put_silence(writer *out) {
    for (uint32_t i = 0; i < kSilence; i++)
        put_sample(out, 0);
}

void put_bit(writer *out, bool one) {
    double step = kTurn * (one ? out->modem->mark : out->modem->space) / kWavRate;
    for (uint32_t i = 0; i < kWavRate / kBitRate; i++) {
        put_sample(out, kAmplitude * sin(out->phase));
        out->phase = fmod(out->phase + step, kTurn); // the phase runs on where the frequency changes
    }
}

void put_byte(writer *out, uint8_t byte) {
    put_bit(out, false);
    for (int bit = 0; bit < 8; bit++)
        put_bit(out, byte >> bit & 1);
    put_bit(out, true);
}

void put_head(FILE *file, uint32_t samples) {
    constexpr wav_format kFormat = {WAV_LINEAR, 1, kWavRate, 16};
    uint8_t head[kWavHeadBytes];
    wav_head_write(&kFormat, samples * 2, head);
    fwrite(head, 1, sizeof head, file);
}

} // namespace

uint32_t fsk_line_block(const char *text, uint8_t *block) {
    size_t digits = strlen(text);
    if (digits < 6 || digits % 2 != 0 || digits / 2 > kBlockBytes)
        return 0;
    uint32_t length = static_cast<uint32_t>(digits / 2);
    for (uint32_t i = 0; i < length; i++) {
        const char pair[3] = {text[size_t{2} * i], text[size_t{2} * i + 1], 0};
        if (!isxdigit(static_cast<unsigned char>(pair[0])) || !isxdigit(static_cast<unsigned char>(pair[1])))
            return 0;
        block[i] = static_cast<uint8_t>(strtoul(pair, nullptr, 16));
    }
    if (block[1] + 3u != length)
        return 0;
    uint8_t sum = 0;
    for (uint32_t i = 0; i < length - 1; i++)
        sum = static_cast<uint8_t>(sum + block[i]);
    if (block[length - 1] != sum)
        return 0; // the plain sum, as blocks travel between processes
    block[length - 1] = static_cast<uint8_t>(-sum);
    return length;
}

bool fsk_write_wav(const char *path, const fsk_modem *modem, const uint8_t *block, uint32_t length) {
    FILE *file = fopen(path, "wbe");
    if (file == nullptr)
        return false;
    writer out = {file, modem, 0, 0};
    put_head(file, 0);
    put_silence(&out);
    for (uint32_t i = 0; i < kSeizureBits; i++)
        put_bit(&out, i % 2 != 0);
    for (uint32_t i = 0; i < kMarkBits; i++)
        put_bit(&out, true);
    for (uint32_t i = 0; i < length; i++)
        put_byte(&out, block[i]);
    for (int i = 0; i < 10; i++)
        put_bit(&out, true);
    put_silence(&out);
    rewind(file);
    put_head(file, out.samples);
    bool written = ferror(file) == 0;
    return fclose(file) == 0 && written;
}

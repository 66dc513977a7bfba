// SPDX-License-Identifier: MIT
// Heads of WAV files.
#include "wav_format.h"

#include "little_endian.h"

#include <stdio.h>
#include <string.h>

namespace {

const char *coding_name(uint16_t coding) {
    switch (coding) {
    case WAV_LINEAR:
        return "PCM";
    case 3:
        return "floating point";
    case WAV_ALAW:
        return "A-law";
    case WAV_ULAW:
        return "u-law";
    default:
        return nullptr;
    }
}

} // namespace

void wav_head_write(const wav_format *format, uint32_t sound_bytes, uint8_t head[kWavHeadBytes]) {
    const uint32_t frame = uint32_t{format->channels} * format->bits / 8;
    memcpy(head, "RIFF", 4);
    put_le32(head + 4, kWavHeadBytes - 8 + sound_bytes);
    memcpy(head + 8, "WAVEfmt ", 8);
    put_le32(head + 16, 16);
    put_le16(head + 20, format->coding);
    put_le16(head + 22, format->channels);
    put_le32(head + 24, format->rate);
    put_le32(head + 28, format->rate * frame);
    put_le16(head + 32, frame);
    put_le16(head + 34, format->bits);
    memcpy(head + 36, "data", 4);
    put_le32(head + 40, sound_bytes);
}

wav_format wav_format_read(const uint8_t *bytes, uint32_t count) {
    wav_format format = {get_le16(bytes), get_le16(bytes + 2), get_le32(bytes + 4), get_le16(bytes + 14)};
    if (format.coding == WAV_EXTENSIBLE && count >= 26)
        format.coding = get_le16(bytes + 24);
    return format;
}

const char *wav_format_text(const wav_format *format) {
    static char text[96];
    char number[24];
    const char *name = coding_name(format->coding);
    snprintf(number, sizeof number, "coding %u", format->coding);
    snprintf(text, sizeof text, "%s %u bit, %u channel%s, %u Hz", name != nullptr ? name : number, format->bits,
             format->channels, format->channels == 1 ? "" : "s", format->rate);
    return text;
}

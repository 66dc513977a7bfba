// SPDX-License-Identifier: MIT
// Reading WAV files that come from anywhere: every length is checked before it is believed.
#include "wav_reader.h"

#include "g711.h"
#include "little_endian.h"
#include "plain_file.h"
#include "sampling_clock.h"
#include "wav_format.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uint32_t kMostChunks = 64; // before the samples
constexpr uint32_t kRiffBytes = 12, kChunkHeadBytes = 8, kFormatBytes = 16, kExtensibleBytes = 26;
// Who writes to a pipe cannot know the length and says as much, or more: GStreamer this, sox 0x7FFFF000.
constexpr uint32_t kLengthUnknown = 0x7FFF0000;

// All that is asked for, or less at the end of the file.
uint32_t bytes_read(int fd, uint64_t at, uint8_t *bytes, uint32_t count) {
    const ssize_t got = pread(fd, bytes, count, static_cast<off_t>(at));
    return got > 0 ? static_cast<uint32_t>(got) : 0;
}

const char *format_wrong(const wav_format *format) {
    static char text[192];
    const uint32_t bits = format->coding == WAV_LINEAR ? 16 : 8;
    const bool is_known = format->coding == WAV_LINEAR || format->coding == WAV_ALAW || format->coding == WAV_ULAW;
    if (is_known && format->channels == 1 && format->rate == kSampleRate && format->bits == bits)
        return nullptr;
    snprintf(text, sizeof text, "is %s: wanted is PCM 16 bit, 1 channel, 8000 Hz (or A-law, u-law)",
             wav_format_text(format));
    return text;
}

// What a "fmt " chunk says of the samples that follow.
const char *format_take(wav_reader *reader, uint64_t at, uint32_t length) {
    uint8_t bytes[kExtensibleBytes];
    const uint32_t wanted = length < kExtensibleBytes ? length : kExtensibleBytes;
    if (length < kFormatBytes || bytes_read(reader->fd, at, bytes, wanted) < wanted)
        return "is cut: its head ends early";
    const wav_format format = wav_format_read(bytes, wanted);
    reader->coding = format.coding;
    return format_wrong(&format);
}

// Where the samples are. What was cut off its end is no recording as it was made.
const char *sound_take(wav_reader *reader, uint64_t at, uint32_t length, uint64_t size) {
    static char text[96];
    const uint64_t there = size > at ? size - at : 0;
    if (reader->coding == 0)
        return "is no WAV file: its samples come before their format";
    if (there < length && length < kLengthUnknown) {
        snprintf(text, sizeof text, "is cut: %llu of %u bytes of sound are there",
                 static_cast<unsigned long long>(there), length);
        return text;
    }
    uint64_t bytes = there < length ? there : length;
    if (reader->coding == WAV_LINEAR)
        bytes -= bytes % 2;
    if (bytes == 0)
        return "holds no sound";
    reader->begin = reader->at = at;
    reader->end = at + bytes;
    return nullptr;
}

// Chunk by chunk, each with its length, until the samples.
const char *head_read(wav_reader *reader, uint64_t size) {
    uint8_t head[kRiffBytes];
    if (bytes_read(reader->fd, 0, head, kRiffBytes) < kRiffBytes || memcmp(head, "RIFF", 4) != 0 ||
        memcmp(head + 8, "WAVE", 4) != 0)
        return "is no WAV file (RIFF/WAVE)";
    uint64_t at = kRiffBytes;
    for (uint32_t chunks = 0; chunks < kMostChunks; chunks++) {
        if (bytes_read(reader->fd, at, head, kChunkHeadBytes) < kChunkHeadBytes)
            return chunks == 0 ? "is cut: its head ends early" : "is cut: it ends before its sound";
        const uint32_t length = get_le32(head + 4);
        at += kChunkHeadBytes;
        if (memcmp(head, "data", 4) == 0)
            return sound_take(reader, at, length, size);
        const char *wrong = memcmp(head, "fmt ", 4) == 0 ? format_take(reader, at, length) : nullptr;
        if (wrong != nullptr)
            return wrong;
        at += uint64_t{length} + length % 2;
    }
    return "is no WAV file: more than 64 chunks before its sound";
}

const char *file_look(wav_reader *reader) {
    struct stat status;
    if (fstat(reader->fd, &status) != 0)
        return strerror(errno);
    return status.st_size == 0 ? "is empty" : head_read(reader, static_cast<uint64_t>(status.st_size));
}

// The next piece. What the file no longer has, though its head announced it, has been taken away meanwhile.
void piece_read(wav_reader *reader) {
    const uint64_t left = reader->end - reader->at;
    const uint32_t wanted = left < kWavPieceBytes ? static_cast<uint32_t>(left) : kWavPieceBytes;
    const ssize_t got = pread(reader->fd, reader->piece, wanted, static_cast<off_t>(reader->at));
    reader->taken = 0;
    reader->filled = got > 0 ? static_cast<uint32_t>(got) : 0;
    reader->at += reader->filled;
    if (reader->filled < wanted)
        reader->wrong = got < 0 ? strerror(errno) : "it was cut while it was read";
}

int16_t sample_take(wav_reader *reader) {
    const uint8_t *bytes = reader->piece + reader->taken;
    reader->taken += reader->coding == WAV_LINEAR ? 2 : 1;
    if (reader->coding == WAV_LINEAR)
        return static_cast<int16_t>(get_le16(bytes));
    return reader->coding == WAV_ALAW ? g711_alaw_decode(*bytes) : g711_ulaw_decode(*bytes);
}

} // namespace

const char *wav_reader_open(wav_reader *reader, const char *path) {
    *reader = {};
    const char *wrong = plain_file_open(path, O_RDONLY, FILE_PLAIN, &reader->fd);
    if (wrong != nullptr)
        return wrong;
    reader->open = true;
    posix_fadvise(reader->fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    wrong = file_look(reader);
    if (wrong != nullptr)
        wav_reader_close(reader);
    return wrong;
}

uint32_t wav_reader_next(wav_reader *reader, int16_t *samples, uint32_t count) {
    const uint32_t size = reader->coding == WAV_LINEAR ? 2 : 1;
    uint32_t given = 0;
    while (reader->open && given < count) {
        if (reader->filled - reader->taken >= size)
            samples[given++] = sample_take(reader);
        else if (reader->at == reader->end || reader->wrong != nullptr)
            wav_reader_close(reader);
        else
            piece_read(reader);
    }
    return given;
}

void wav_reader_close(wav_reader *reader) {
    if (reader->open)
        close(reader->fd);
    reader->open = false;
}

uint64_t wav_reader_length(const wav_reader *reader) {
    return (reader->end - reader->begin) / (reader->coding == WAV_LINEAR ? 2 : 1);
}

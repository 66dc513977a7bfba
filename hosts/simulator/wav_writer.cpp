// SPDX-License-Identifier: MIT
// Writing WAV files. The head never counts more than is there: a reader finds a whole file at any moment.
#include "wav_writer.h"

#include "little_endian.h"
#include "plain_file.h"
#include "sampling_clock.h"
#include "wav_format.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uint32_t kFrameBytes = 4; // of both channels
constexpr wav_format kFormat = {WAV_LINEAR, 2, kSampleRate, 16};

bool bytes_write(int fd, uint64_t at, const uint8_t *bytes, uint32_t count) {
    while (count > 0) {
        const ssize_t written = pwrite(fd, bytes, count, static_cast<off_t>(at));
        if (written <= 0) {
            errno = written == 0 ? ENOSPC : errno;
            return false;
        }
        at += static_cast<uint64_t>(written);
        bytes += written;
        count -= static_cast<uint32_t>(written);
    }
    return true;
}

bool head_write(const wav_writer *writer) {
    uint8_t head[kWavHeadBytes];
    wav_head_write(&kFormat, static_cast<uint32_t>(writer->bytes), head);
    return bytes_write(writer->fd, 0, head, sizeof head);
}

// Something else than a recording is not to be lost by a slip of the pen.
const char *contents_wrong(int fd) {
    uint8_t head[12];
    const ssize_t got = pread(fd, head, sizeof head, 0);
    if (got < 0)
        return strerror(errno);
    if (got > 0 && (got < 12 || memcmp(head, "RIFF", 4) != 0 || memcmp(head + 8, "WAVE", 4) != 0))
        return "is there already and is no WAV file";
    return nullptr;
}

// What is held goes into the file, then it is counted.
const char *piece_write(wav_writer *writer) {
    if (!bytes_write(writer->fd, kWavHeadBytes + writer->bytes, writer->piece, writer->held))
        return strerror(errno);
    writer->bytes += writer->held;
    writer->held = 0;
    return head_write(writer) ? nullptr : strerror(errno);
}

// What could not be written is cut off, so that no half of a sample stays.
const char *writer_end(wav_writer *writer, const char *wrong) {
    if (wrong != nullptr)
        (void)!ftruncate(writer->fd, static_cast<off_t>(kWavHeadBytes + writer->bytes));
    const bool closed = close(writer->fd) == 0;
    writer->open = false;
    writer->held = 0;
    return wrong != nullptr || closed ? wrong : strerror(errno);
}

const char *room_wrong(const wav_writer *writer, uint64_t samples) {
    const uint64_t room = writer->most - writer->bytes - writer->held;
    return samples > room / kFrameBytes ? "it is as long as a WAV file can be" : nullptr;
}

} // namespace

const char *wav_writer_open(wav_writer *writer, const char *path) {
    *writer = {};
    writer->most = kWavMostBytes;
    const char *wrong = plain_file_open(path, O_RDWR | O_CREAT, FILE_PLAIN, &writer->fd);
    if (wrong != nullptr)
        return wrong;
    wrong = plain_file_lock(writer->fd) ? contents_wrong(writer->fd) : "is being recorded to";
    writer->open = wrong == nullptr;
    if (!writer->open)
        close(writer->fd);
    return wrong;
}

const char *wav_writer_begin(wav_writer *writer) {
    if (ftruncate(writer->fd, 0) == 0 && head_write(writer))
        return nullptr;
    const char *wrong = strerror(errno);
    wav_writer_leave(writer);
    return wrong;
}

void wav_writer_leave(wav_writer *writer) {
    close(writer->fd);
    writer->open = false;
}

const char *wav_writer_put(wav_writer *writer, const int16_t *left, const int16_t *right, uint32_t count) {
    const char *wrong = room_wrong(writer, count);
    for (uint32_t i = 0; i < count && wrong == nullptr; i++) {
        put_le16(writer->piece + writer->held, static_cast<uint16_t>(left[i]));
        put_le16(writer->piece + writer->held + 2, static_cast<uint16_t>(right[i]));
        writer->held += kFrameBytes;
        if (writer->held == sizeof writer->piece)
            wrong = piece_write(writer);
    }
    return wrong == nullptr ? nullptr : writer_end(writer, wrong);
}

const char *wav_writer_skip(wav_writer *writer, uint64_t samples) {
    const char *wrong = room_wrong(writer, samples);
    if (wrong == nullptr)
        wrong = piece_write(writer);
    if (wrong == nullptr) {
        writer->bytes += samples * kFrameBytes;
        if (ftruncate(writer->fd, static_cast<off_t>(kWavHeadBytes + writer->bytes)) != 0 || !head_write(writer))
            wrong = strerror(errno);
    }
    return wrong == nullptr ? nullptr : writer_end(writer, wrong);
}

const char *wav_writer_close(wav_writer *writer) {
    return writer_end(writer, piece_write(writer));
}

uint64_t wav_writer_length(const wav_writer *writer) {
    return (writer->bytes + writer->held) / kFrameBytes;
}

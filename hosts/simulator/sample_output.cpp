// SPDX-License-Identifier: MIT
// Samples into a pipe. Each write is short enough to be taken whole or not at all.
#include "sample_output.h"

#include "little_endian.h"
#include "plain_file.h"
#include "sampling_clock.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kPipeBytes = 4096; // the least that a pipe holds
static_assert(kStepSamples * 2 <= _POSIX_PIPE_BUF);

// Samples have no head: nobody could tell an older file of them from any other.
const char *contents_wrong(int fd) {
    struct stat status;
    if (fstat(fd, &status) != 0)
        return strerror(errno);
    return S_ISREG(status.st_mode) && status.st_size > 0 ? "is there already" : nullptr;
}

} // namespace

const char *sample_output_open(sample_output *output, const char *path) {
    *output = {};
    const char *wrong = plain_file_open(path, O_WRONLY | O_CREAT, FILE_PLAIN_OR_PIPE, &output->fd);
    if (wrong != nullptr)
        return wrong;
    wrong = plain_file_lock(output->fd) ? contents_wrong(output->fd) : "is being written to";
    output->open = wrong == nullptr;
    if (output->open)
        (void)!fcntl(output->fd, F_SETPIPE_SZ, kPipeBytes); // no pipe: nothing
    else
        close(output->fd);
    return wrong;
}

const char *sample_output_put(sample_output *output, const int16_t *samples, uint32_t count) {
    uint8_t bytes[kStepSamples * 2];
    count = count < kStepSamples ? count : kStepSamples;
    for (uint32_t i = 0; i < count; i++)
        put_le16(bytes + size_t{2} * i, static_cast<uint16_t>(samples[i]));
    const ssize_t written = write(output->fd, bytes, size_t{2} * count);
    if (written == static_cast<ssize_t>(size_t{2} * count)) {
        output->given += count;
        return nullptr;
    }
    if (written < 0 && (errno == EAGAIN || errno == EINTR)) {
        output->dropped += count;
        return nullptr;
    }
    const char *wrong = written >= 0 ? strerror(ENOSPC) : errno == EPIPE ? "nobody reads any more" : strerror(errno);
    sample_output_close(output);
    return wrong;
}

void sample_output_close(sample_output *output) {
    if (output->open)
        close(output->fd);
    output->open = false;
}

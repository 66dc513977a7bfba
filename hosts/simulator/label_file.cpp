// SPDX-License-Identifier: MIT
// Rows of fixed width but for their text, so that an end can be written over.
#include "label_file.h"

#include "plain_file.h"
#include "printable.h"
#include "sampling_clock.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

namespace {

constexpr uint32_t kTimeBytes = 12; // "00012.345000", and then a tab
constexpr uint32_t kSampleUs = 1000000 / kSampleRate;
// Places are counted from 1, so that 0 is none.
constexpr uint64_t kFirstPlace = 1;

// @param text  kTimeBytes + 1 bytes
void time_write(uint64_t samples, char *text) {
    const uint64_t seconds = samples / kSampleRate;
    snprintf(text, kTimeBytes + 1, "%05u.%06u", static_cast<uint32_t>(seconds % 100000),
             static_cast<uint32_t>(samples % kSampleRate * kSampleUs));
}

// "00012.345000" and a tab.
bool is_time(const char *text) {
    constexpr char kTime[] = "ddddd.dddddd\t";
    for (uint32_t i = 0; i <= kTimeBytes; i++)
        if (kTime[i] == 'd' ? text[i] < '0' || text[i] > '9' : text[i] != kTime[i])
            return false;
    return true;
}

// What somebody has written by hand beside it is not to be lost.
const char *contents_wrong(int fd) {
    char begin[2 * (kTimeBytes + 1)];
    const ssize_t got = pread(fd, begin, sizeof begin, 0);
    if (got < 0)
        return strerror(errno);
    if (got > 0 && (got < static_cast<ssize_t>(sizeof begin) || !is_time(begin) || !is_time(begin + kTimeBytes + 1)))
        return "is there already and has no labels";
    return nullptr;
}

bool text_write(int fd, uint64_t at, const char *text, size_t length) {
    const ssize_t written = pwrite(fd, text, length, static_cast<off_t>(at));
    if (written >= 0 && static_cast<size_t>(written) < length)
        errno = ENOSPC;
    return written == static_cast<ssize_t>(length);
}

} // namespace

const char *label_file_open(label_file *labels, const char *path) {
    *labels = {};
    labels->most = kLabelMostBytes;
    const char *wrong = plain_file_open(path, O_RDWR | O_CREAT, FILE_PLAIN, &labels->fd);
    if (wrong != nullptr)
        return wrong;
    wrong = plain_file_lock(labels->fd) ? contents_wrong(labels->fd) : "is being recorded to";
    labels->open = wrong == nullptr;
    if (!labels->open)
        close(labels->fd);
    return wrong;
}

const char *label_file_begin(label_file *labels) {
    if (ftruncate(labels->fd, 0) == 0)
        return nullptr;
    const char *wrong = strerror(errno);
    label_file_close(labels);
    return wrong;
}

uint64_t label_file_add(label_file *labels, uint64_t at, const char *text) {
    char time[kTimeBytes + 1], label[160], row[2 * kTimeBytes + sizeof label + 4];
    time_write(at, time);
    snprintf(label, sizeof label, "%s", text);
    line_make_printable(label); // no tab and no end of line
    const int length = snprintf(row, sizeof row, "%s\t%s\t%s\n", time, time, label);
    const uint64_t place = labels->bytes;
    if (place + static_cast<uint64_t>(length) > labels->most) { // however much is told
        errno = EFBIG;
        return 0;
    }
    if (!text_write(labels->fd, place, row, static_cast<size_t>(length))) {
        const int reason = errno;
        (void)!ftruncate(labels->fd, static_cast<off_t>(place)); // no half of a row
        errno = reason;
        return 0;
    }
    labels->bytes += static_cast<uint64_t>(length);
    return place + kFirstPlace;
}

bool label_file_extend(label_file *labels, uint64_t place, uint64_t end) {
    char time[kTimeBytes + 1];
    time_write(end, time);
    return text_write(labels->fd, place - kFirstPlace + kTimeBytes + 1, time, kTimeBytes);
}

void label_file_close(label_file *labels) {
    if (labels->open)
        close(labels->fd);
    labels->open = false;
}

// SPDX-License-Identifier: MIT
// A file of RTP and RTCP packets.
#include "media_file.h"

#include "clock.h"
#include "console.h"
#include "packet_block.h"
#include "plain_file.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr uint32_t kBuffer = 256 * 1024; // bytes; a power of two
constexpr time_t kLastSeconds = 1;       // for what is left at the end of the process

// What both threads see. <atomic> would bring in a C++ library, and not every gateway has one.
template <typename T>
class Shared {
public:
    T load() const { return __atomic_load_n(&value_, __ATOMIC_ACQUIRE); }
    void store(T value) { __atomic_store_n(&value_, value, __ATOMIC_RELEASE); }

private:
    T value_;
};

int file = -1;
uint8_t buffer[kBuffer];
Shared<uint32_t> put;   // bytes that have come in, in all; their place is that modulo the buffer
Shared<uint32_t> taken; // bytes that have been written
Shared<int> fault;      // errno of the writer
Shared<bool> ends;
sem_t work, done;
uint64_t lost; // since the last packet that was put
bool told;

// Takes back what was written of a block that is not whole: the file ends with a whole one at every moment.
void whole_blocks_keep(off_t whole) {
    [[maybe_unused]] const int result = ftruncate(file, whole);
}

// Whole blocks are put, and a piece of the buffer that wraps ends within one: `whole` moves when both are written.
bool piece_write(const uint8_t *bytes, uint32_t size) {
    while (size > 0) {
        const ssize_t written = write(file, bytes, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes += written;
        size -= static_cast<uint32_t>(written);
    }
    return true;
}

void buffer_write(off_t *whole) {
    const uint32_t begin = taken.load();
    const uint32_t size = put.load() - begin;
    if (size == 0)
        return;
    const uint32_t at = begin % kBuffer, first = size < kBuffer - at ? size : kBuffer - at;
    if (piece_write(buffer + at, first) && piece_write(buffer, size - first)) {
        *whole += size;
        taken.store(begin + size);
        return;
    }
    fault.store(errno);
    whole_blocks_keep(*whole);
}

void *writer_run(void *begin) {
    off_t whole = *static_cast<off_t *>(begin);
    while (fault.load() == 0) {
        const bool last = ends.load();
        buffer_write(&whole);
        if (last)
            break;
        while (sem_wait(&work) != 0 && errno == EINTR)
            ;
    }
    sem_post(&done);
    return nullptr;
}

// Signals are for the thread that runs the bus.
bool writer_start(off_t whole) {
    static off_t begin;
    begin = whole;
    sigset_t all, before;
    pthread_t thread;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const bool started = sem_init(&work, 0, 0) == 0 && sem_init(&done, 0, 0) == 0 &&
                         pthread_create(&thread, nullptr, writer_run, &begin) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (started)
        pthread_detach(thread);
    return started;
}

void writer_end() {
    timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += kLastSeconds;
    ends.store(true);
    sem_post(&work);
    while (sem_timedwait(&done, &until) != 0 && errno == EINTR)
        ;
}

// Whether it is a capture of this kind, or empty.
bool is_ours(int descriptor) {
    uint8_t head[kSectionBytes];
    const ssize_t size = read(descriptor, head, sizeof head);
    return size == 0 || (size == static_cast<ssize_t>(sizeof head) && section_is_ours(head));
}

const char *file_check(int descriptor) {
    if (!plain_file_lock(descriptor))
        return "is being written to";
    return is_ours(descriptor) ? nullptr : "is there already and is no media file";
}

bool file_start() {
    uint8_t head[kFileHeadBytes];
    const uint32_t size = file_head_write(head);
    return lseek(file, 0, SEEK_SET) == 0 && ftruncate(file, 0) == 0 && piece_write(head, size) &&
           writer_start(static_cast<off_t>(size)) && atexit(writer_end) == 0;
}

bool is_over() {
    const int error = fault.load();
    if (error != 0 && !told)
        say("media file ends: %s", strerror(error));
    told = error != 0;
    return told;
}

} // namespace

const char *media_file_take(const char *path) {
    if (file >= 0)
        return "one file only";
    int descriptor = -1;
    const char *wrong = plain_file_open(path, O_RDWR | O_CREAT, FILE_PLAIN, &descriptor);
    if (wrong == nullptr)
        wrong = file_check(descriptor);
    if (wrong == nullptr)
        file = descriptor;
    else if (descriptor >= 0)
        close(descriptor);
    return wrong;
}

void media_file_begin() {
    if (file >= 0 && !file_start())
        fault.store(errno != 0 ? errno : EIO);
}

void media_file_add(const media_file_packet *packet, const uint8_t *bytes, size_t size) {
    uint8_t block[kMostPacketBlock];
    if (file < 0 || is_over())
        return;
    const moment now = moment_of_day();
    const uint64_t time = now.seconds * 1000000000 + now.nanoseconds - packet->age;
    const uint32_t whole = packet_block_write(packet, time, lost, bytes, size, block);
    const uint32_t begin = put.load();
    if (whole == 0 || whole > kBuffer - (begin - taken.load())) {
        lost++;
        return;
    }
    lost = 0;
    const uint32_t at = begin % kBuffer, first = whole < kBuffer - at ? whole : kBuffer - at;
    memcpy(buffer + at, block, first);
    memcpy(buffer, block + first, whole - first);
    put.store(begin + whole);
    sem_post(&work);
}

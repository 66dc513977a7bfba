// SPDX-License-Identifier: MIT
#include "calls.h"

#include <algorithm>
#include <math.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr double kInTimeMs = 2;

} // namespace

[[noreturn]] void fail(const char *what) {
    perror(what);
    exit(1);
}

void pair_make(int *pair) {
    sockaddr_in address[2] = {};
    for (int i = 0; i < 2; i++) {
        socklen_t size = sizeof address[i];
        address[i].sin_family = AF_INET;
        address[i].sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        pair[i] = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (pair[i] < 0 || bind(pair[i], reinterpret_cast<sockaddr *>(&address[i]), size) != 0 ||
            getsockname(pair[i], reinterpret_cast<sockaddr *>(&address[i]), &size) != 0)
            fail("socket");
    }
    for (int i = 0; i < 2; i++)
        if (connect(pair[i], reinterpret_cast<sockaddr *>(&address[1 - i]), sizeof address[i]) != 0)
            fail("connect");
}

void call_begin(audio *line, int media, int control) {
    const line_media_t one = {VOICE_MODE_SEND_RECEIVE, LIBVOICE_CODEC_PCMA, 8, 20, 0, 0, media, control};
    if (audio_open(line, 0, &one) != nullptr)
        fail("media");
}

void watched_begin(watched_line *one, audio *line) {
    const int yes = 1;
    pair_make(one->media);
    pair_make(one->control);
    if (setsockopt(one->media[1], SOL_SOCKET, SO_TIMESTAMPNS, &yes, sizeof yes) != 0)
        fail("SO_TIMESTAMPNS");
    call_begin(line, one->media[0], one->control[0]);
}

void watched_read(watched_line *one) {
    uint8_t packet[2048], notes[128];
    for (;;) {
        iovec where = {packet, sizeof packet};
        msghdr message = {};
        message.msg_iov = &where;
        message.msg_iovlen = 1;
        message.msg_control = notes;
        message.msg_controllen = sizeof notes;
        if (recvmsg(one->media[1], &message, MSG_DONTWAIT) < 4)
            return;
        const cmsghdr *note = CMSG_FIRSTHDR(&message);
        timespec came;
        if (note == nullptr || note->cmsg_type != SCM_TIMESTAMPNS)
            continue;
        memcpy(&came, CMSG_DATA(note), sizeof came);
        const uint16_t sequence = static_cast<uint16_t>(packet[2] << 8 | packet[3]);
        one->last = one->offsets.empty() ? sequence : one->last + static_cast<uint16_t>(sequence - one->last);
        one->offsets.push_back(static_cast<double>(came.tv_sec % 86400) * 1e3 +
                               static_cast<double>(came.tv_nsec) * 1e-6 - 20.0 * one->last);
    }
}

double watched_end(watched_line *one, audio *line) {
    line_statistics_t unused;
    audio_close(line, 0, &unused);
    close(one->media[1]);
    close(one->control[1]);
    std::vector<double> sorted = one->offsets;
    std::sort(sorted.begin(), sorted.end());
    const double middle = sorted.empty() ? 0 : sorted[sorted.size() / 2];
    const auto in_time =
        std::count_if(sorted.begin(), sorted.end(), [=](double offset) { return fabs(offset - middle) <= kInTimeMs; });
    return sorted.empty() ? 0 : 100 * static_cast<double>(in_time) / static_cast<double>(sorted.size());
}

namespace {

double sleeps_in_time(uint32_t seconds) {
    constexpr long kPeriodNs = 20'000'000, kSecondNs = 1'000'000'000;
    timespec due, now;
    clock_gettime(CLOCK_MONOTONIC, &due);
    uint32_t in_time = 0;
    const uint32_t turns = seconds * 50;
    for (uint32_t i = 0; i < turns; i++) {
        due.tv_nsec += kPeriodNs;
        if (due.tv_nsec >= kSecondNs) {
            due.tv_nsec -= kSecondNs;
            due.tv_sec++;
        }
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr) != 0)
            continue;
        clock_gettime(CLOCK_MONOTONIC, &now);
        const double late =
            static_cast<double>(now.tv_sec - due.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec - due.tv_nsec) * 1e-6;
        in_time += late <= kInTimeMs;
    }
    return 100.0 * in_time / turns;
}

} // namespace

sleeper sleeper_begin(uint32_t seconds) {
    int ends[2];
    if (pipe(ends) != 0)
        fail("pipe");
    const pid_t process = fork();
    if (process < 0)
        fail("fork");
    if (process == 0) {
        const double figure = sleeps_in_time(seconds);
        _exit(write(ends[1], &figure, sizeof figure) == sizeof figure ? 0 : 1);
    }
    close(ends[1]);
    return {process, ends[0]};
}

double sleeper_end(const sleeper *one) {
    double figure = 0;
    if (read(one->figure, &figure, sizeof figure) != sizeof figure)
        fail("the process that sleeps");
    close(one->figure);
    waitpid(one->process, nullptr, 0);
    return figure;
}

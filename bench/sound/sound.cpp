// SPDX-License-Identifier: MIT
/*
 * What the sound of simulated lines costs, and how late it is.
 *
 *     bench_sound [--once]
 *
 * Lines talk in pairs over G.711 and UDP on this machine, every one with its tone detector. First on a clock of the
 * program's own, as fast as it goes; then on the machine's, where one line says clicks that are found in what the other
 * hears. Ends with status 1 when a goal is not met. --once lets a second pass without a figure.
 */
#include "audio.h"

#include "kex_host.h"
#include "measure.h"

#include <algorithm>
#include <math.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <vector>

namespace {

constexpr uint32_t kLines = 32;
constexpr double kGoalRealTime = 1000, kGoalCorePercent = 10, kGoalDelayMs = 80;
constexpr uint32_t kVirtualSeconds = 600, kSteadySeconds = 20;
constexpr uint32_t kClickSteps = 50; // a click each half second
constexpr int16_t kClick = 20000;

audio lines[kLines];
kex_t *bus;
uint64_t now_virtual; // nanoseconds

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

// Calls between the first `count` lines, each with the next one.
void calls_begin(uint32_t count) {
    for (uint32_t i = 0; i < count; i += 2) {
        int media[2], control[2];
        pair_make(media);
        pair_make(control);
        for (uint32_t end = 0; end < 2; end++) {
            const line_media_t one = {
                VOICE_MODE_SEND_RECEIVE, LIBVOICE_CODEC_PCMA, 8, 20, 0, 0, media[end], control[end]};
            if (audio_open(&lines[i + end], 0, &one) != nullptr)
                fail("media");
        }
    }
}

line_statistics_t calls_end(uint32_t count) {
    line_statistics_t sum = {};
    for (uint32_t i = 0; i < count; i++) {
        line_statistics_t one;
        audio_close(&lines[i], 0, &one);
        sum.tx_packets += one.tx_packets;
        sum.rx_packets += one.rx_packets;
        sum.discarded += one.discarded;
    }
    return sum;
}

// Of this process, in user and system, in seconds.
double cpu_seconds() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void heard(const audio *, const char *) {}

bool goal_tell(const char *what, double figure, const char *unit, double goal, bool is_least) {
    const bool met = is_least ? figure >= goal : figure <= goal;
    printf("%-52s %8.1f %s  goal: %s %.0f%s\n", what, figure, unit, is_least ? "at least" : "at most", goal,
           met ? "" : "  MISSED");
    return met;
}

// ------------------------------------------------------------------------------------------- As fast as it goes

bool virtual_run(uint32_t seconds) {
    sampling_clock_replace([] { return now_virtual; });
    audio_begin(bus, "bench");
    calls_begin(2);
    const double before = cpu_seconds();
    for (uint32_t ms = 0; ms < seconds * 1000; ms += 20) {
        now_virtual += 20000000;
        sampling_clock_advance();
        while (kex_dispatch(bus) > 0) {
        }
    }
    const double took = (cpu_seconds() - before) / 2; // two lines
    const line_statistics_t sum = calls_end(2);
    sampling_clock_replace(nullptr);
    if (sum.rx_packets + 4 < sum.tx_packets || sum.rx_packets < 2 * seconds * 50 - 10) {
        fprintf(stderr, "%u of %u packets came\n", sum.rx_packets, sum.tx_packets);
        return false;
    }
    if (seconds == 1)
        return true;
    return goal_tell("one line of a call, times real time", seconds / took, "   ", kGoalRealTime, true);
}

// ------------------------------------------------------------------------------------------------ In real time

struct clicks {
    uint32_t steps;
    std::vector<uint64_t> said, heard; // positions of the sampling clock
};

bool click_say(void *userdata, uint64_t position, int16_t *samples) {
    clicks *one = static_cast<clicks *>(userdata);
    memset(samples, 0, kStepSamples * sizeof *samples);
    if (++one->steps % kClickSteps == 0) {
        samples[0] = kClick;
        one->said.push_back(position);
    }
    return true;
}

void click_find(void *userdata, uint64_t position, const int16_t *heard, const int16_t *) {
    clicks *one = static_cast<clicks *>(userdata);
    for (uint32_t i = 0; i < kStepSamples; i++)
        if (abs(heard[i]) > kClick / 2 && (one->heard.empty() || position + i > one->heard.back() + kSampleRate / 10))
            one->heard.push_back(position + i);
}

// Of those that came, in ms, from the least to the most.
std::vector<double> delays_of(const clicks &all) {
    std::vector<double> delays;
    for (uint64_t said : all.said) {
        const auto came = std::upper_bound(all.heard.begin(), all.heard.end(), said);
        if (came != all.heard.end() && *came - said < kSampleRate / 2)
            delays.push_back(static_cast<double>(*came - said) * 1000 / kSampleRate);
    }
    std::sort(delays.begin(), delays.end());
    return delays;
}

bool steady_run(uint32_t seconds) {
    clicks all = {};
    const sound_source source = {&all, click_say};
    const sound_sink sink = {&all, click_find, nullptr};
    audio_begin(bus, "bench");
    calls_begin(kLines);
    audio_set_source(&lines[0], &source);
    audio_add_sink(&lines[1], &sink);
    const double before = cpu_seconds(), begin = now_ns();
    pollfd ready = {kex_pollDescriptor(bus), POLLIN, 0};
    while (now_ns() - begin < seconds * 1e9) {
        poll(&ready, 1, 1000);
        kex_dispatch(bus);
    }
    const double took = cpu_seconds() - before, passed = (now_ns() - begin) * 1e-9;
    audio_remove_sink(&lines[1], &all);
    audio_set_source(&lines[0], nullptr);
    const line_statistics_t sum = calls_end(kLines);
    const std::vector<double> delays = delays_of(all);
    if (delays.empty() || sum.rx_packets < kLines * seconds * 45) {
        fprintf(stderr, "%zu clicks and %u packets came\n", delays.size(), sum.rx_packets);
        return false;
    }
    if (seconds == 1)
        return true;
    bool met = goal_tell("32 lines of calls with their detectors, of a core", 100 * took / passed, "% ",
                         kGoalCorePercent, false);
    met = goal_tell("from microphone to receiver, packets of 20 ms, middle", delays[delays.size() / 2], "ms",
                    kGoalDelayMs, false) &&
          met;
    printf("  of %zu clicks %zu came, after %.1f to %.1f ms; %u of %u packets were discarded\n", all.said.size(),
           delays.size(), delays.front(), delays.back(), sum.discarded, sum.rx_packets);
    return met;
}

} // namespace

int main(int count, char **words) {
    const bool once = count == 2 && strcmp(words[1], "--once") == 0;
    if (count > 1 && !once) {
        fprintf(stderr, "usage: bench_sound [--once]\n");
        return 2;
    }
    bus = kex_create("bench_sound");
    if (bus == nullptr)
        fail("bus");
    for (uint32_t i = 0; i < kLines; i++)
        audio_start(&lines[i], "bench", 1000 + i % 5 * 40, heard);
    const bool fast = virtual_run(once ? 1 : kVirtualSeconds);
    const bool steady = steady_run(once ? 1 : kSteadySeconds);
    kex_destroy(bus);
    return fast && steady ? 0 : 1;
}

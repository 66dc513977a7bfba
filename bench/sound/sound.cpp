// SPDX-License-Identifier: MIT
/*
 * What the sound of simulated lines costs, and how late it is.
 *
 *     bench_sound [--once]
 *
 * Lines talk in pairs over G.711 and UDP on this machine, every one with its tone detector. First on a clock of the
 * program's own, as fast as it goes; then on the machine's, where one line says clicks that are found in what the other
 * hears, and one more line sends to a socket at which the kernel notes when each packet came; then all are recorded too.
 * Beside them a process only sleeps and wakes: on a machine with other work it is late, too.
 * Ends with status 1 when a goal is not met. --once lets a second pass without a figure.
 */
#include "calls.h"

#include "kex_host.h"
#include "measure.h"
#include "wav_writer.h"

#include <algorithm>
#include <array>
#include <math.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr uint32_t kLines = 32;
constexpr double kGoalRealTime = 1000, kGoalCorePercent = 10, kGoalDelayMs = 80;
constexpr double kGoalRecordingPercent = 3, kGoalInTimePercent = 99.9;
constexpr uint32_t kVirtualSeconds = 600, kSteadySeconds = 20;
constexpr uint32_t kClickSteps = 50; // a click each half second
constexpr int16_t kClick = 20000;

audio lines[kLines + 1]; // the last one sends to a socket that the kernel looks at
kex_t *bus;
uint64_t now_virtual; // nanoseconds

// Calls between the first `count` lines, each with the next one.
void calls_begin(uint32_t count) {
    for (uint32_t i = 0; i < count; i += 2) {
        int media[2], control[2];
        pair_make(media);
        pair_make(control);
        for (uint32_t end = 0; end < 2; end++)
            call_begin(&lines[i + end], media[end], control[end]);
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
    printf("%-54s %8.1f %s  goal: %s %g%s\n", what, figure, unit, is_least ? "at least" : "at most", goal,
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

// Lets all calls go on for so many seconds. Returns the share of a core that they took, in percent.
double calls_run(uint32_t seconds, watched_line *watched) {
    const double before = cpu_seconds(), begin = now_ns();
    pollfd ready = {kex_pollDescriptor(bus), POLLIN, 0};
    while (now_ns() - begin < seconds * 1e9) {
        poll(&ready, 1, 1000);
        kex_dispatch(bus);
        watched_read(watched);
    }
    return 100 * (cpu_seconds() - before) / ((now_ns() - begin) * 1e-9);
}

// The same for as long while each line is recorded.
double recording_run(uint32_t seconds, watched_line *watched) {
    static std::array<wav_writer, kLines> writers;
    char folder[] = "/tmp/bench_sound.XXXXXX";
    if (mkdtemp(folder) == nullptr)
        fail(folder);
    const auto path_of = [&](uint32_t i) { return std::string(folder) + "/" + std::to_string(i) + ".wav"; };
    const auto put = [](void *writer, uint64_t, const int16_t *heard, const int16_t *said) {
        wav_writer_put(static_cast<wav_writer *>(writer), heard, said, kStepSamples);
    };
    for (uint32_t i = 0; i < kLines; i++) {
        const sound_sink sink = {&writers[i], put, nullptr};
        if (wav_writer_open(&writers[i], path_of(i).c_str()) != nullptr || wav_writer_begin(&writers[i]) != nullptr ||
            audio_add_sink(&lines[i], &sink) != nullptr)
            fail("recording");
    }
    const double took = calls_run(seconds, watched);
    for (uint32_t i = 0; i < kLines; i++) {
        audio_remove_sink(&lines[i], &writers[i]);
        if (wav_writer_length(&writers[i]) < seconds * kSampleRate * 9 / 10)
            fail("a recording is too short");
        wav_writer_close(&writers[i]);
        unlink(path_of(i).c_str());
    }
    rmdir(folder);
    return took;
}

bool steady_run(uint32_t seconds) {
    clicks all = {};
    watched_line watched = {};
    const sound_source source = {&all, click_say};
    const sound_sink sink = {&all, click_find, nullptr};
    audio_begin(bus, "bench");
    calls_begin(kLines);
    watched_begin(&watched, &lines[kLines]);
    const sleeper twin = sleeper_begin(2 * seconds);
    audio_set_source(&lines[0], &source);
    audio_add_sink(&lines[1], &sink);
    const double took = calls_run(seconds, &watched);
    audio_remove_sink(&lines[1], &all);
    audio_set_source(&lines[0], nullptr);
    const double recorded = recording_run(seconds, &watched);
    const double in_time = watched_end(&watched, &lines[kLines]), machine = sleeper_end(&twin);
    const line_statistics_t sum = calls_end(kLines);
    const std::vector<double> delays = delays_of(all);
    if (delays.empty() || watched.offsets.empty() || sum.rx_packets < kLines * seconds * 45) {
        fprintf(stderr, "%zu clicks, %zu packets of one line and %u of the others came\n", delays.size(),
                watched.offsets.size(), sum.rx_packets);
        return false;
    }
    if (seconds == 1)
        return true;
    const bool goals[] = {
        goal_tell("32 lines of calls with their detectors, of a core", took, "% ", kGoalCorePercent, false),
        goal_tell("what recording all of them adds", recorded - took, "% ", kGoalRecordingPercent, false),
        goal_tell("from microphone to receiver, packets of 20 ms, middle", delays[delays.size() / 2], "ms",
                  kGoalDelayMs, false),
        goal_tell("packets that leave within 2 ms of their time", in_time, "% ", std::min(kGoalInTimePercent, machine),
                  true),
    };
    printf("  a process that only sleeps was in time in %.1f %%: what the machine allows\n", machine);
    printf("  of %zu clicks %zu came, after %.1f to %.1f ms; %u of %u packets were discarded\n", all.said.size(),
           delays.size(), delays.front(), delays.back(), sum.discarded, sum.rx_packets);
    return std::all_of(std::begin(goals), std::end(goals), [](bool met) { return met; });
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
    for (uint32_t i = 0; i <= kLines; i++)
        audio_start(&lines[i], "bench", 1000 + i % 5 * 40, heard);
    const bool fast = virtual_run(once ? 1 : kVirtualSeconds);
    const bool steady = steady_run(once ? 1 : kSteadySeconds);
    kex_destroy(bus);
    return fast && steady ? 0 : 1;
}

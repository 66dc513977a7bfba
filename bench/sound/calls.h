// SPDX-License-Identifier: MIT
// Media of simulated lines over UDP on this machine.
#ifndef BENCH_SOUND_CALLS_H
#define BENCH_SOUND_CALLS_H

#include "audio.h"

#include <sys/types.h>
#include <vector>

[[noreturn]] void fail(const char *what);

/** Two sockets that are connected with each other. */
void pair_make(int *pair);
/** G.711 in packets of 20 ms over two sockets, which are the line's from now on. */
void call_begin(audio *line, int media, int control);

/** What a line sends to a socket of this program, and when each packet came by the kernel's clock. */
struct watched_line {
    int media[2], control[2];
    std::vector<double> offsets; // ms, of each packet: when it came, less its place in the sequence
    uint32_t last;               // the sequence number of the newest one, without the end of 16 bits
};

void watched_begin(watched_line *one, audio *line);
void watched_read(watched_line *one);
/** The share of packets that came within 2 ms of their time, in percent; the time is that of the middle one. */
double watched_end(watched_line *one, audio *line);

/** A process that only wakes every 20 ms, for so many seconds: what lateness is the machine's. */
struct sleeper {
    pid_t process;
    int figure;
};
sleeper sleeper_begin(uint32_t seconds);
/** Waits for its end. @return the share of its turns that were within 2 ms of their time, in percent */
double sleeper_end(const sleeper *one);

#endif

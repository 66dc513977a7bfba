// SPDX-License-Identifier: MIT
// What benchmarks of several processes share: options, a folder of their own for sockets, children, and how figures are printed.
#ifndef BENCH_PROGRAM_H
#define BENCH_PROGRAM_H

#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

struct Options {
    bool once = false; // everything a single time, without a figure
    int cpus = 1;
    int rounds = 1;
    int batch = 1; // operations of a round
};

// `usual`: what stands when no option says anything else. Ends the process with status 2 when the options are wrong.
Options options_read(int argc, char **argv, const Options &usual);

[[noreturn]] void die(const char *what);
// Makes the folder; once, before the first child.
void folder_create();
// A path for a socket, in the folder of this run.
std::string socket_path(const std::string &name);

// A child that does this and nothing else; it goes with its parent.
pid_t child_start(const std::function<void()> &serve, bool on_second_cpu);
// With SIGKILL; returns when it is gone.
void child_kill(pid_t child);
// Ends the children that are left, and removes the folder.
void leave_nothing();

// The figures of one way to do one thing, one for each round.
struct Figures {
    std::string path;
    std::string by;
    std::vector<double> ns;
};
void print(const std::vector<Figures> &all); // as JSON

#endif

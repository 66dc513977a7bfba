// SPDX-License-Identifier: MIT
// The command line of kex_conformance, and which checks it chooses.
#ifndef CONFORMANCE_OPTIONS_H
#define CONFORMANCE_OPTIONS_H

#include "run.h"

namespace conformance {

constexpr unsigned kMaxChosen = 64;

struct Options {
    Running running;
    const char *chosen[kMaxChosen]; // --only: ids, groups or patterns; none: all
    unsigned chosen_count;
    const char *expected; // --expect: a file; null: every check is to hold
    bool lists;
    bool alone;
    bool runs_long;
};

constexpr int kGoOn = -1;

// kGoOn, or the status to end with: help and version have been told, or what is wrong.
int options_read(int argc, char **argv, Options &options);
// Whether the check is among those that were asked for; one that takes long may still be left out.
bool options_choose(const Options &options, const Check &check);

} // namespace conformance

#endif

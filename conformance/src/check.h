// SPDX-License-Identifier: MIT
// What a check is, and the few words that checks are written in.
//
// A check runs in a process of its own, which loads the binding, makes what it needs and ends. One with a `serve` has a
// second process beside it, which does the same: see far.h. Whatever does not hold ends the check at once, in either
// process: the first word is what the report shows.
#ifndef CONFORMANCE_CHECK_H
#define CONFORMANCE_CHECK_H

#include <initializer_list> // of what the checks go through
#include <stddef.h>
#include <stdint.h>

namespace conformance {

enum class Level { must, should };

struct Check {
    const char *id;             // "group.what"
    Level level;                // MUST: a host fails without it
    const char *sentence;       // of the header
    void (*run)();              // in the first process, which is the one that connects
    void (*serve)();            // in the second one, which listens; null: it needs none
    unsigned seconds;           // until it is ended; 0: as long as most, see --timeout
    bool takes_long;            // left out without --long
    bool needs_sockets = false; // although alone: left out with --alone, which is for a bus that is not there
};

// One group of checks, in the order in which they run.
struct Group {
    const Check *checks;
    unsigned count;
};

extern const Group *const kGroups[];
extern const unsigned kGroupCount;

// Ends the check: it does not hold, because of what is said.
[[noreturn]] void fail(const char *format, ...) __attribute__((format(printf, 1, 2)));
// The check goes on when it holds; else as fail().
void expect(bool holds, const char *format, ...) __attribute__((format(printf, 2, 3)));
// For the report of a check that holds, too.
void saw(const char *format, ...) __attribute__((format(printf, 1, 2)));
// Both: what was compared shows in the report, and that it differs ends the check.
void expect_number(const char *what, int64_t seen, int64_t expected);
void expect_text(const char *what, const char *seen, const char *expected);
// What is done now, for the report of a check that never comes back.
void step(const char *what);

} // namespace conformance

#endif

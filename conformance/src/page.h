// SPDX-License-Identifier: MIT
// Memory that the processes of a check share with the one that reports: what they leave there outlives a crash.
#ifndef CONFORMANCE_PAGE_H
#define CONFORMANCE_PAGE_H

namespace conformance {

enum Process { kFirst, kSecond, kProcesses };

constexpr unsigned kTextSize = 2048;

struct Page {
    const char *entered[kProcesses]; // the function of the binding that was called last
    const char *step[kProcesses];
    char seen[kProcesses][kTextSize];
    unsigned ran;              // functions of both processes, to their end
    bool vanishes[kProcesses]; // it ends itself as a crash would
    bool finishes[kProcesses]; // it has come to its end: a binding may end it before, without a sign of failure
    int failures;              // how many processes have failed; the first one writes `why`
    char why[kTextSize];
};

// Made once, before anything is forked.
extern Page *page;
// Which of them this process is; kProcesses: it is the one that reports.
extern Process process;

bool page_make();

} // namespace conformance

#endif

// SPDX-License-Identifier: MIT
// Runs one check in processes of its own, with a limit of time.
#ifndef CONFORMANCE_RUN_H
#define CONFORMANCE_RUN_H

#include "check.h"
#include "page.h"

namespace conformance {

struct Result {
    bool holds;
    char why[kTextSize]; // it does not hold
    char seen[kProcesses][kTextSize];
};

// How all checks are run.
struct Running {
    const char *path; // of the binding
    unsigned seconds; // for a check that does not say otherwise
    bool shows_trace; // what the binding writes on standard error is shown
};

// False: this machine does not let it (traced on standard error).
bool check_run(const Check &check, const Running &running, Result &result);

} // namespace conformance

#endif

// SPDX-License-Identifier: MIT
// Checks that a bus keeps the platform contract (kex.h): each check in processes of its own, so that one that crashes or
// never comes back has a name, and the others run on.
#include "expected.h"
#include "folder.h"
#include "options.h"
#include "page.h"
#include "report.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>

using namespace conformance;

namespace {

constexpr int kHolds = 0, kBroken = 1, kCannot = 2;

Options options;

bool is_chosen(const Check &check) {
    return options_choose(options, check);
}

void nothing_to_do() {}

// Loading may crash or hang too: it is tried as a check is.
constexpr Check kLoading = {"loading", Level::must, "", nothing_to_do, nullptr, 0, false};

unsigned chosen_count() {
    unsigned count = 0;
    for (unsigned g = 0; g < kGroupCount; g++) {
        for (unsigned c = 0; c < kGroups[g]->count; c++)
            count += is_chosen(kGroups[g]->checks[c]) ? 1 : 0;
    }
    return count;
}

bool check_report(const Check &check) {
    Result result;
    if (check.takes_long && !options.runs_long) {
        report_left_out(check);
        return true;
    }
    if (!check_run(check, options.running, result))
        return false;
    report_check(check, result, expected_reason(check.id));
    return true;
}

bool checks_report() {
    for (unsigned g = 0; g < kGroupCount; g++) {
        for (unsigned c = 0; c < kGroups[g]->count; c++) {
            const Check &check = kGroups[g]->checks[c];
            if (is_chosen(check) && !(check_report(check) && fflush(stdout) == 0))
                return false;
        }
    }
    return true;
}

// Their ends are waited for with a limit of time, which takes a signal that is held back.
void children_signals_hold() {
    sigset_t children;
    sigemptyset(&children);
    sigaddset(&children, SIGCHLD);
    sigprocmask(SIG_BLOCK, &children, nullptr);
}

int program_run(int argc, char **argv) {
    const int status = options_read(argc, argv, options);
    if (status != kGoOn)
        return status;
    if (options.lists) {
        report_list(is_chosen);
        return kHolds;
    }
    if (options.expected != nullptr && !expected_read(options.expected))
        return kCannot;
    if (chosen_count() == 0) {
        fputs("kex_conformance: no check is left: those of --only need a second process or a socket\n", stderr);
        return kCannot;
    }
    if (!page_make()) {
        perror("kex_conformance");
        return kCannot;
    }
    children_signals_hold();
    folders_sweep();
    Result loaded;
    if (!check_run(kLoading, options.running, loaded))
        return kCannot;
    report_begin(chosen_count());
    if (!loaded.holds) {
        report_bail_out(loaded.why);
        return kCannot;
    }
    if (!checks_report())
        return kCannot;
    return report_end() ? kHolds : kBroken;
}

// A report of which nothing arrives must not look like that of a bus that keeps the contract.
bool output_is_written() {
    if (fflush(stdout) == 0 && ferror(stdout) == 0)
        return true;
    fprintf(stderr, "kex_conformance: standard output cannot be written: %s\n", strerror(errno));
    return false;
}

} // namespace

int main(int argc, char **argv) {
    const int status = program_run(argc, argv);
    return output_is_written() ? status : kCannot;
}

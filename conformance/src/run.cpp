// SPDX-License-Identifier: MIT
// Implements run.h: one process for each side of the check, both in a process group, which is ended as a whole.
#include "run.h"
#include "far.h"
#include "folder.h"
#include "page.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace conformance {

namespace {

constexpr int kLook = 100; // milliseconds between two looks at the time

struct Child {
    pid_t id; // 0: there is none, or it has ended
    int status;
};

// ----------------------------------------------------------------------------------------- In a process of the check

void output_discard(bool shows_trace) {
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(nowhere, STDIN_FILENO);
    dup2(nowhere, STDOUT_FILENO);
    if (!shows_trace)
        dup2(nowhere, STDERR_FILENO);
    close(nowhere);
}

[[noreturn]] void child_run(Process which, const Check &check, const Running &running, pid_t group, int own_line) {
    process = which;
    line = own_line;
    library_path = running.path;
    prctl(PR_SET_PDEATHSIG, SIGKILL); // nothing of a check outlives the program
    setpgid(0, group);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    output_discard(running.shows_trace);
    binding_load(running.path);
    (which == kFirst ? check.run : check.serve)();
    page->finishes[which] = true;
    _exit(0);
}

// The process is in its group when this returns, whoever of both was first. 0: it cannot be made.
pid_t child_start(Process which, const Check &check, const Running &running, pid_t group, int own_line, int other) {
    const pid_t id = fork();
    if (id == 0) {
        if (other >= 0)
            close(other);
        child_run(which, check, running, group, own_line);
    }
    if (id < 0)
        return 0;
    setpgid(id, group != 0 ? group : id);
    return id;
}

// ----------------------------------------------------------------------------------------- In the one that reports

uint64_t milliseconds_now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

void children_reap(Child (&children)[kProcesses]) {
    for (Child &child : children) {
        if (child.id != 0 && waitpid(child.id, &child.status, WNOHANG) == child.id)
            child.id = 0;
    }
}

bool child_has_failed(const Child &child, Process which) {
    if (child.id != 0 || page->vanishes[which])
        return false;
    return !page->finishes[which];
}

void sleep_for_child() {
    sigset_t children;
    sigemptyset(&children);
    sigaddset(&children, SIGCHLD);
    const timespec limit = {0, kLook * 1000000L};
    sigtimedwait(&children, nullptr, &limit);
}

// Until both have ended, one has failed, or the time is up. False: it is up.
bool children_wait(Child (&children)[kProcesses], unsigned seconds) {
    const uint64_t end = milliseconds_now() + uint64_t{seconds} * 1000;
    for (;;) {
        children_reap(children);
        if (children[kFirst].id == 0 && children[kSecond].id == 0)
            return true;
        if (child_has_failed(children[kFirst], kFirst) || child_has_failed(children[kSecond], kSecond))
            return true;
        if (milliseconds_now() >= end)
            return false;
        sleep_for_child();
    }
}

void children_end(Child (&children)[kProcesses], pid_t group) {
    kill(-group, SIGKILL);
    for (Child &child : children) {
        if (child.id != 0)
            waitpid(child.id, &child.status, 0);
    }
}

// " in variant_fd", " while serving": where a process was last.
const char *place_of(Process which, char (&text)[160]) {
    if (page->entered[which] != nullptr)
        snprintf(text, sizeof text, " in %s", page->entered[which]);
    else
        snprintf(text, sizeof text, " while %s", page->step[which] != nullptr ? page->step[which] : "it began");
    return text;
}

const char *name_of(Process which, const Check &check) {
    if (check.serve == nullptr)
        return "it";
    return which == kFirst ? "the process that connects" : "the process that listens";
}

void hang_describe(const Check &check, unsigned seconds, const Child (&children)[kProcesses], Result &result) {
    char place[160];
    const Process which = children[kFirst].id != 0 ? kFirst : kSecond;
    snprintf(result.why, sizeof result.why, "ended after %u s: %s never came back%s", seconds, name_of(which, check),
             place_of(which, place));
}

// What the process said itself, else how it ended.
void failure_describe(const Check &check, const Child (&children)[kProcesses], Result &result) {
    char place[160];
    if (page->failures > 0) {
        memcpy(result.why, page->why, sizeof result.why);
        return;
    }
    const Process which = child_has_failed(children[kFirst], kFirst) ? kFirst : kSecond;
    const int status = children[which].status;
    if (WIFSIGNALED(status))
        snprintf(result.why, sizeof result.why, "%s crashed with signal %d (%s)%s", name_of(which, check),
                 WTERMSIG(status), strsignal(WTERMSIG(status)), place_of(which, place));
    else
        snprintf(result.why, sizeof result.why, "%s was ended with status %d%s", name_of(which, check),
                 WEXITSTATUS(status), place_of(which, place));
}

bool children_start(const Check &check, const Running &running, Child (&children)[kProcesses], pid_t &group) {
    int lines[2] = {-1, -1};
    if (check.serve != nullptr && socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, lines) != 0)
        return false;
    group = child_start(kFirst, check, running, 0, lines[0], lines[1]);
    children[kFirst].id = group;
    if (check.serve != nullptr && group != 0)
        children[kSecond].id = child_start(kSecond, check, running, group, lines[1], lines[0]);
    if (lines[0] >= 0) {
        close(lines[0]);
        close(lines[1]);
    }
    return group != 0 && (check.serve == nullptr || children[kSecond].id != 0);
}

} // namespace

bool check_run(const Check &check, const Running &running, Result &result) {
    result = {};
    memset(static_cast<void *>(page), 0, sizeof *page);
    page->finishes[kSecond] = check.serve == nullptr; // there is none
    Child children[kProcesses] = {};
    pid_t group = 0;
    const bool made = folder_make();
    const bool started = made && children_start(check, running, children, group);
    if (!started) {
        fprintf(stderr, "kex_conformance: a check cannot be started%s%s: %s\n", made ? "" : " in ", made ? "" : folder,
                strerror(errno));
        if (group != 0)
            children_end(children, group);
        if (made)
            folder_remove();
        return false;
    }
    const unsigned seconds = check.seconds != 0 ? check.seconds : running.seconds;
    const bool in_time = children_wait(children, seconds);
    const bool failed = child_has_failed(children[kFirst], kFirst) || child_has_failed(children[kSecond], kSecond);
    result.holds = in_time && !failed && page->failures == 0;
    if (!in_time && page->failures == 0)
        hang_describe(check, seconds, children, result);
    else if (!result.holds)
        failure_describe(check, children, result);
    children_end(children, group);
    memcpy(result.seen, page->seen, sizeof result.seen);
    folder_remove();
    return true;
}

} // namespace conformance

// SPDX-License-Identifier: MIT
#include "program.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "measure.h"

namespace {

char folder[] = "/tmp/bench-XXXXXX";
std::vector<pid_t> children;

int number_from(const char *word) {
    char *end = nullptr;
    const long number = word ? std::strtol(word, &end, 10) : 0;
    return end && *end == '\0' && number > 0 && number <= 1000000 ? static_cast<int>(number) : 0;
}

bool words_read(int argc, char **argv, Options &options) {
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--once") {
            options = {true, 1, 1, 1};
            continue;
        }
        int *place = word == "--cpus" ? &options.cpus : word == "--rounds" ? &options.rounds : nullptr;
        if (word == "--batch")
            place = &options.batch;
        if (!place || (*place = number_from(argv[++i < argc ? i : argc])) == 0)
            return false;
    }
    return options.cpus <= 2;
}

} // namespace

Options options_read(int argc, char **argv, const Options &usual) {
    Options options = usual;
    if (words_read(argc, argv, options))
        return options;
    std::fprintf(stderr, "usage: %s [--once] [--cpus 1|2] [--rounds N] [--batch N]\n", program_invocation_short_name);
    std::exit(2);
}

void die(const char *what) {
    std::fprintf(stderr, "%s: %s: %s\n", program_invocation_short_name, what, std::strerror(errno));
    std::_Exit(1);
}

void folder_create() {
    if (!mkdtemp(folder))
        die("mkdtemp");
}

std::string socket_path(const std::string &name) {
    return std::string(folder) + "/" + name;
}

pid_t child_start(const std::function<void()> &serve, bool on_second_cpu) {
    const pid_t pid = fork();
    if (pid < 0)
        die("fork");
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (on_second_cpu)
            stay_on_one_cpu(1);
        serve();
        _exit(0);
    }
    children.push_back(pid);
    return pid;
}

void child_kill(pid_t child) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    children.erase(std::remove(children.begin(), children.end(), child), children.end());
}

void leave_nothing() {
    while (!children.empty())
        child_kill(children.back());
    const std::string command = std::string("rm -rf ") + folder;
    if (std::system(command.c_str()) != 0)
        std::fprintf(stderr, "%s: %s is left\n", program_invocation_short_name, folder);
}

void print(const std::vector<Figures> &all) {
    std::puts("[");
    for (size_t i = 0; i < all.size(); ++i) {
        std::printf("{\"path\": \"%s\", \"by\": \"%s\", \"ns\": [", all[i].path.c_str(), all[i].by.c_str());
        for (size_t k = 0; k < all[i].ns.size(); ++k)
            std::printf("%s%.1f", k != 0 ? ", " : "", all[i].ns[k]);
        std::printf("]}%s\n", i + 1 < all.size() ? "," : "");
    }
    std::puts("]");
}

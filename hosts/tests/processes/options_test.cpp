// SPDX-License-Identifier: MIT
// Command lines of real hosts: what makes no sense ends the process at once, with status 2.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

// Its exit status; -1 when it still runs after 5 s.
int status_of(const char *program, std::vector<std::string> options) {
    options.insert(options.begin(), {program, "--no-stdin"});
    pid_t child = fork();
    if (child == 0) {
        int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
        dup2(nowhere, STDOUT_FILENO);
        dup2(nowhere, STDERR_FILENO);
        std::vector<char *> words;
        for (std::string &option : options)
            words.push_back(option.data());
        words.push_back(nullptr);
        execv(program, words.data());
        _exit(127);
    }
    for (int turns = 0; turns < 500; turns++) {
        int status;
        if (waitpid(child, &status, WNOHANG) == child)
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        usleep(10000);
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return -1;
}

} // namespace

TEST(Options, SocketPathThatNoAddressHoldsIsRefused) {
    const std::string longest = "/tmp/" + std::string(103, 'x');
    for (const char *program : {HOST_APPLICATION, HOST_FXS}) {
        EXPECT_EQ(status_of(program, {"--socket", longest}), 2) << program;
        EXPECT_EQ(status_of(program, {"--socket", ""}), 2) << program;
    }
}

TEST(Options, NamesThatTheApplicationWouldNotTakeAreRefused) {
    for (const char *name : {"", "a.b", "a b", "a\nb", "a\"b", "\x7F", "\xC3\xA4", "12345678901234567890"})
        EXPECT_EQ(status_of(HOST_FXS, {"--socket", "/tmp/nowhere", "--name", name}), 2) << "'" << name << "'";
    for (const char *stem : {"", "a.b", "a b", "a\nb", "a\"b", "\x7F", "\xC3\xA4", "123456789012345"})
        EXPECT_EQ(status_of(HOST_FXS, {"--socket", "/tmp/nowhere", "--stem", stem}), 2) << "'" << stem << "'";
}

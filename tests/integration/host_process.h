// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// A host as a process of its own, its output in a pipe.
class Host {
public:
    Host(const char *program, const std::string &socket, std::vector<const char *> options = {}) {
        int output[2], input[2];
        EXPECT_EQ(pipe(output), 0);
        EXPECT_EQ(pipe2(input, O_CLOEXEC), 0);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(output[1], STDOUT_FILENO);
            dup2(input[0], STDIN_FILENO);
            close(output[0]);
            close(output[1]);
            std::vector<const char *> words = {program, "--socket", socket.c_str()};
            words.insert(words.end(), options.begin(), options.end());
            words.push_back(nullptr);
            execv(program, const_cast<char *const *>(words.data()));
            _exit(127);
        }
        close(output[1]);
        close(input[0]);
        output_ = output[0];
        input_ = input[1];
    }
    ~Host() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        close(output_);
        close(input_);
    }
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;
    // Types a command.
    void tell(const std::string &command) {
        const std::string text = command + "\n";
        EXPECT_EQ(write(input_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    // Whether a line with this text comes within 5 s.
    bool says(const char *text) {
        for (int turns = 0; turns < 500 && seen_.find(text) == std::string::npos; turns++) {
            pollfd ready = {output_, POLLIN, 0};
            char part[4096];
            ssize_t got = poll(&ready, 1, 10) == 1 ? read(output_, part, sizeof part) : 0;
            seen_.append(part, static_cast<size_t>(got > 0 ? got : 0));
            if (turn_ != nullptr)
                turn_();
        }
        return seen_.find(text) != std::string::npos;
    }
    void forget() { seen_.clear(); }
    int descriptors() const {
        int count = 0;
        DIR *directory = opendir(("/proc/" + std::to_string(pid_) + "/fd").c_str());
        while (directory != nullptr && readdir(directory) != nullptr)
            count++;
        if (directory != nullptr)
            closedir(directory);
        return count;
    }
    // Whether it comes to hold so many within 5 s: what closes slowly is closed beside its loop.
    bool comes_to_hold(int count) const {
        for (int turns = 0; turns < 500 && descriptors() != count; turns++)
            usleep(10000);
        return descriptors() == count;
    }
    // Ends it by SIGTERM; its exit status.
    int leave() {
        kill(pid_, SIGTERM);
        for (int turns = 0; turns < 300; turns++) {
            int status;
            if (waitpid(pid_, &status, WNOHANG) == pid_)
                return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            if (turn_ != nullptr)
                turn_();
            usleep(10000);
        }
        return -1;
    }
    void (*turn_)() = nullptr; // what the test has to do meanwhile, as a peer

private:
    pid_t pid_;
    int output_, input_;
    std::string seen_;
};

// SPDX-License-Identifier: MIT
// Lines of an input as commands on a host's control connection, on the fake bus.
#ifndef FUZZ_CONTROL_CLIENT_H
#define FUZZ_CONTROL_CLIENT_H

#include "require.h"
#include "terminal.h"
#include "voice_fake/bus.h"

#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace fuzz {

// Where the host of this process listens.
inline const std::string &control_path() {
    static const std::string path = [] {
        const char *folder = getenv("TMPDIR");
        return std::string(folder ? folder : "/tmp") + "/console-fuzz-" + std::to_string(getpid());
    }();
    return path;
}

// A control connection. Each command is answered, and no answer breaks a line or steers a terminal.
class ControlClient {
public:
    ControlClient() : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        control_path().copy(address.sun_path, sizeof address.sun_path - 1);
        require(connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0, "a client connects");
        fake::bus().turn();
    }
    ~ControlClient() { close(fd_); }
    ControlClient(const ControlClient &) = delete;
    ControlClient &operator=(const ControlClient &) = delete;

    void command(const std::string &line) {
        const unsigned before = ends_;
        const std::string bytes = line + "\n";
        (void)!::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        fake::bus().turn();
        answers_check();
        const std::string text = line.substr(0, line.find('\0'));
        const bool is_command = text.find_first_not_of(" \t\r") != std::string::npos;
        require(ends_ >= before + is_command, "a command is answered");
    }

private:
    // Looks at what has come.
    void answers_check() {
        std::string all(1 << 16, '\0');
        const ssize_t got = recv(fd_, all.data(), all.size(), MSG_DONTWAIT);
        all.resize(got > 0 ? static_cast<size_t>(got) : 0);
        require(all.empty() || all.back() == '\n', "answers end with a line break");
        require(!steers_a_terminal(all), "no answer steers a terminal");
        std::istringstream lines(all);
        for (std::string line; std::getline(lines, line);)
            ends_ += line == "ok" || line.compare(0, 7, "error: ") == 0;
    }

    int fd_;
    unsigned ends_ = 0; // commands that have been answered
};

// Lines that begin with '!' are steps of the target, the others commands.
template <typename Step>
void control_lines_run(std::istream &lines, Step step) {
    constexpr unsigned kMostLines = 60;
    ControlClient client;
    unsigned left = kMostLines;
    for (std::string line; left > 0 && std::getline(lines, line) && !fake::bus().is_stopped(); --left) {
        if (line.compare(0, 1, "!") == 0)
            step(line);
        else
            client.command(line);
    }
}

} // namespace fuzz

#endif

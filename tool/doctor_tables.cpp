// SPDX-License-Identifier: MIT
// What the application answers to "status" at its control socket.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <sstream>

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "doctor_look.h"
#include "numbers.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr std::chrono::seconds kPatience{2}; // with each part of the answer, and with all of it
constexpr size_t kMostAnswer = 64 * 1024;

// A stream socket to the path, which gives up by itself. -1: with errno.
int control_connect(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval patience = {static_cast<time_t>(kPatience.count()), 0};
    if (descriptor >= 0 && setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) == 0 &&
        setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience) == 0 &&
        connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return descriptor;
    const int error = errno;
    if (descriptor >= 0)
        close(descriptor);
    errno = error;
    return -1;
}

bool is_granted(const std::string &answer) {
    return answer.starts_with("ok\n") || answer.find("\nok\n") != std::string::npos;
}

bool is_whole(const std::string &answer) {
    return is_granted(answer) || answer.find("\nerror: ") != std::string::npos || answer.starts_with("error: ");
}

} // namespace

TableFacts tables_read(const std::string &lines) {
    TableFacts tables;
    std::istringstream rest(lines);
    for (std::string line; std::getline(rest, line);) {
        // Names may hold blanks: what stands around them tells where they end.
        constexpr std::string_view kPlugin = "plugin ", kProcess = " process=", kLine = "line ",
                                   kEndpoint = " endpoint=";
        const size_t process = line.rfind(kProcess), number = line.find(kEndpoint);
        PluginFacts plugin;
        if (line.starts_with(kPlugin) && process != std::string::npos &&
            number_read(line.substr(process + kProcess.size()), plugin.process)) {
            plugin.name = line.substr(kPlugin.size(), process - kPlugin.size());
            tables.plugins.push_back(plugin);
        } else if (line.starts_with(kLine) && number != std::string::npos) {
            const size_t name = std::min(line.find(' ', number + kEndpoint.size()), line.size() - 1) + 1;
            tables.endpoints.push_back(line.substr(name, line.find(" \"", name) - name));
        }
    }
    if (!is_granted(lines))
        tables.problem = "the control socket gave no answer to \"status\"";
    return tables;
}

TableFacts tables_look(const std::string &control) {
    const int descriptor = control_connect(control);
    if (descriptor < 0)
        return {.problem = fmt::format("no control socket {}: {}", in_quotes(control), std::strerror(errno))};
    constexpr std::string_view kQuestion = "status\n";
    std::string answer;
    if (send(descriptor, kQuestion.data(), kQuestion.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(kQuestion.size())) {
        char bytes[4096];
        const auto end = std::chrono::steady_clock::now() + kPatience;
        for (ssize_t size = 1;
             size > 0 && !is_whole(answer) && answer.size() < kMostAnswer && std::chrono::steady_clock::now() < end;) {
            size = recv(descriptor, bytes, sizeof bytes, 0);
            answer.append(bytes, size > 0 ? static_cast<size_t>(size) : 0);
        }
    }
    close(descriptor);
    TableFacts tables = tables_read(answer);
    for (PluginFacts &plugin : tables.plugins)
        plugin.running = kill(plugin.process, 0) == 0 || errno != ESRCH;
    return tables;
}

} // namespace voicectl

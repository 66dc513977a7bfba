// SPDX-License-Identifier: MIT
// What the subcommands share: exit statuses, errors, the terminal, the time.
#include "common.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <fmt/format.h>

namespace voicectl {

namespace {

// 0, or the error.
int output_try(const std::string &text, bool at_once) {
    const bool taken = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    return taken && (!at_once || std::fflush(stdout) == 0) ? 0 : errno;
}

void output_complain(int error) {
    complain(fmt::format("the output cannot be written: {}", std::strerror(error)));
}

} // namespace

void complain(const std::string &message) {
    // In one piece, and a standard error that is closed is nobody's concern.
    static_cast<void>(std::fputs(fmt::format("voicectl: {}\n", message).c_str(), stderr));
}

bool standard_streams_fill() {
    // Reading what takes the input's place fails, as does writing to what takes the output's: it is lost, which is said.
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(descriptor, F_GETFD) < 0 &&
            open("/dev/null", descriptor == STDOUT_FILENO ? O_RDONLY : O_WRONLY) != descriptor)
            return false;
    return true;
}

int output_write(const std::string &text) {
    const int error = output_try(text, true);
    if (error != 0)
        output_complain(error);
    return error == 0 ? kSuccess : kFailure;
}

bool output_add(const std::string &text, bool at_once) {
    const int error = output_try(text, at_once);
    if (error != 0 && error != EPIPE && error != EINTR) // an interrupt ends a write for which nobody reads
        output_complain(error);
    return error == 0;
}

size_t terminal_columns() {
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

bool wants_colour() {
    const char *no_colour = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    if (no_colour != nullptr && *no_colour != '\0')
        return false;
    return isatty(STDOUT_FILENO) != 0 && (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

uint64_t now_ns() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

} // namespace voicectl

// SPDX-License-Identifier: MIT
// What the subcommands share: exit statuses, errors, where the voice application listens.
#include "common.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

#include "libvoice_plugin.h"
#include "text.h"

namespace voicectl {

void complain(const std::string &message) {
    fmt::print(stderr, "voicectl: {}\n", printable(message));
}

std::string default_uri() {
    return libvoice_get_ipc_socket_uri();
}

bool wants_colour() {
    const char *no_colour = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) != 0 && (no_colour == nullptr || *no_colour == '\0');
}

uint64_t now_ns() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

} // namespace voicectl

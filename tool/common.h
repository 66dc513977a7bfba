// SPDX-License-Identifier: MIT
// What the subcommands share: exit statuses, errors, where the voice application listens.
#ifndef VOICECTL_COMMON_H
#define VOICECTL_COMMON_H

#include <string>

#include <fmt/format.h>

namespace voicectl {

// Exit statuses of every subcommand.
constexpr int kSuccess = 0;
constexpr int kFailure = 1; // what was asked for did not happen
constexpr int kUsage = 2;   // the command line is wrong

// One line on standard error, "voicectl: ...".
void complain(const std::string &message);

// Where plugins connect, which is also where the tool does: the environment's address or the usual one.
std::string default_uri();

// Whether standard output wants colours: a terminal, and NO_COLOR is not set.
bool wants_colour();

// CLOCK_REALTIME, as records carry it.
uint64_t now_ns();

} // namespace voicectl

#endif

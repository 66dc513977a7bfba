// SPDX-License-Identifier: MIT
// What the subcommands share: exit statuses, errors, the terminal, the time.
#ifndef VOICECTL_COMMON_H
#define VOICECTL_COMMON_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace voicectl {

// Exit statuses of every subcommand.
constexpr int kSuccess = 0;
constexpr int kFailure = 1; // what was asked for did not happen
constexpr int kUsage = 2;   // the command line is wrong

// What takes the number of a standard stream that is closed would be written to: the bus, or a capture. False: nothing
// takes its place.
bool standard_streams_fill();

// One line on standard error, "voicectl: ...". The message is printable.
void complain(const std::string &message);

// Writes to standard output. The exit status: a full disk, or nobody who reads, is a failure that is said.
int output_write(const std::string &text);

// The same of a text that others follow; it may wait for them unless it is to be there at once. False: no more is taken. Why is
// said, but not of a reader that has left.
bool output_add(const std::string &text, bool at_once);

// The columns of the terminal that standard output is, as they are now; 0: it is none, or does not know.
size_t terminal_columns();

// Whether standard output wants colours: a terminal that is not dumb, and NO_COLOR is not set.
bool wants_colour();

// CLOCK_REALTIME, as records carry it.
uint64_t now_ns();

} // namespace voicectl

#endif

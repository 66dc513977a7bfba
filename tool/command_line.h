// SPDX-License-Identifier: MIT
// The command line as a whole, read without carrying anything out.
#ifndef VOICECTL_COMMAND_LINE_H
#define VOICECTL_COMMAND_LINE_H

#include <functional>
#include <string>
#include <vector>

namespace voicectl {

// What a command line asks for: one of the three.
struct Command {
    std::function<int()> run; // carries it out and returns the exit status
    std::string text;         // help or version, to be shown
    std::string problem;      // what is wrong with it, as a sentence
};

// Reads the words behind the program's name.
Command command_line_read(const std::vector<std::string> &words);

} // namespace voicectl

#endif

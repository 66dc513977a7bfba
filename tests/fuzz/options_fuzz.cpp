// SPDX-License-Identifier: MIT
// The command line of voicectl: any words are taken, or end in one printable sentence.
#include "command_line.h"

#include "require.h"
#include "terminal.h"

#include <sstream>

using fuzz::require;

namespace {

void sentence_check(const std::string &sentence) {
    require(!sentence.empty(), "what is wrong is said");
    require(!fuzz::steers_a_terminal(sentence) && sentence.find('\n') == std::string::npos,
            "a sentence is one line that steers no terminal");
}

void parse(const std::vector<std::string> &words) {
    const voicectl::Command command = voicectl::command_line_read(words);
    if (!command.problem.empty())
        sentence_check(command.problem);
    else
        require(!command.text.empty() || command.run, "a command line that is right names what to do");
}

} // namespace

// A word a line.
int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    std::istringstream text(std::string(reinterpret_cast<const char *>(bytes), size));
    std::vector<std::string> words;
    for (std::string word; std::getline(text, word);)
        words.push_back(word.substr(0, word.find('\0')));
    parse(words);
    return 0;
}

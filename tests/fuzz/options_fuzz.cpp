// SPDX-License-Identifier: MIT
// The command line of voicectl: any words are taken, or end in one printable sentence.
#include "options.h"
#include "watch.h"

#include "common.h"
#include "require.h"
#include "terminal.h"

#include <algorithm>
#include <functional>
#include <sstream>

using fuzz::require;

namespace {

void sentence_check(const std::string &sentence) {
    require(!sentence.empty(), "what is wrong is said");
    require(!fuzz::steers_a_terminal(sentence) && sentence.find('\n') == std::string::npos,
            "a sentence is one line that steers no terminal");
}

void parse(std::vector<std::string> words) {
    std::function<int()> run;
    CLI::App app("", "voicectl");
    app.set_version_flag("--version", "voicectl");
    app.require_subcommand(1);
    voicectl::watch_add(app, run);
    std::reverse(words.begin(), words.end()); // as CLI11 takes them
    try {
        app.parse(words);
        require(run != nullptr, "a command line that is right names what to do");
    } catch (const CLI::Success &) {
        // help, version
    } catch (const CLI::ParseError &error) {
        sentence_check(voicectl::usage_sentence(app, error));
    }
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

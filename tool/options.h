// SPDX-License-Identifier: MIT
// Options of subcommands, and what is said when a command line is wrong.
#ifndef VOICECTL_OPTIONS_H
#define VOICECTL_OPTIONS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "numbers.h"
#include "text.h"

namespace voicectl {

// A wrong command line, as a sentence.
class UsageError : public CLI::ParseError {
public:
    explicit UsageError(const std::string &sentence)
        : CLI::ParseError("UsageError", sentence, CLI::ExitCodes::ValidationError) {}
};

// A choice of an option by its word.
template <typename Choice>
struct Word {
    const char *word;
    Choice choice;
};

// The words of a list in a sentence: "in, out or both".
std::string either(const std::vector<std::string> &words);

// Words without an option in front, as many as there are.
void words_add(CLI::App &command, const std::string &name, std::vector<std::string> &words, const std::string &help);

// An option with a text that `take` throws a UsageError for when it is wrong; `shown` stands for it in the help.
CLI::Option *text_option_add(CLI::App &command, const std::string &name,
                             const std::function<void(const std::string &)> &take, const std::string &help,
                             const std::string &shown);

// Each adds an option; of one that is given more than once the last counts. The name is as "-n,--count".
void path_option_add(CLI::App &command, const std::string &name, std::string &path, const std::string &help);
void count_option_add(CLI::App &command, const std::string &name, uint64_t &count, const std::string &help);
void seconds_option_add(CLI::App &command, const std::string &name, double &seconds, const std::string &help);
// Names add up. One that `check` has a sentence for is wrong; it is empty for the others.
void names_option_add(CLI::App &command, const std::string &name, std::vector<std::string> &names,
                      const std::string &help, std::string (*check)(const std::string &) = nullptr);
// Files add up, too.
void files_option_add(CLI::App &command, const std::string &name, std::vector<std::string> &files, size_t most,
                      const std::string &help);

template <typename Choice>
void choice_option_add(CLI::App &command, const std::string &name, Choice &choice, std::vector<Word<Choice>> words,
                       const std::string &help) {
    std::vector<std::string> known;
    std::string shown;
    for (const Word<Choice> &word : words) {
        known.emplace_back(word.word);
        shown += shown.empty() ? known.back() : fmt::format("|{}", known.back());
    }
    const std::string option = name.substr(name.rfind(',') + 1);
    command
        .add_option_function<std::string>(
            name,
            [=, &choice](const std::string &text) {
                for (const Word<Choice> &word : words)
                    if (text == word.word) {
                        choice = word.choice;
                        return;
                    }
                throw UsageError(option + " is " + either(known) + ", not " + in_quotes(text));
            },
            help)
        ->option_text(shown)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

// The sentence for any error of a command line.
std::string usage_sentence(const CLI::App &app, const CLI::ParseError &error);

} // namespace voicectl

#endif

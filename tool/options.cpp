// SPDX-License-Identifier: MIT
// Options of subcommands, and what is said when a command line is wrong.
#include "options.h"

#include <sys/un.h>

#include <fmt/format.h>

namespace voicectl {

namespace {

constexpr uint64_t kMostCount = 1'000'000'000'000;
constexpr double kMostSeconds = 31'536'000; // a year

std::string long_name(const std::string &name) {
    return name.substr(name.rfind(',') + 1);
}

// The word that no option or subcommand took, with what it looks like.
std::string unexpected(const std::string &word, const CLI::App *command) {
    if (word.starts_with("-") && word.size() > 1)
        return fmt::format("no option {}", in_quotes(word));
    return command == nullptr ? fmt::format("no subcommand {}", in_quotes(word))
                              : fmt::format("{} is not expected here", in_quotes(word));
}

const CLI::App *chosen_command(const CLI::App &app) {
    const std::vector<CLI::App *> chosen = app.get_subcommands();
    return chosen.empty() ? nullptr : chosen.front();
}

} // namespace

void words_add(CLI::App &command, const std::string &name, std::vector<std::string> &words, const std::string &help) {
    command.add_option(name, words, help)->option_text("...");
}

CLI::Option *text_option_add(CLI::App &command, const std::string &name,
                             const std::function<void(const std::string &)> &take, const std::string &help,
                             const std::string &shown) {
    return command.add_option_function<std::string>(name, take, help)
        ->option_text(shown)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

std::string either(const std::vector<std::string> &words) {
    std::string text;
    for (size_t i = 0; i < words.size(); ++i)
        text += fmt::format("{}{}", i == 0 ? "" : i + 1 == words.size() ? " or " : ", ", words[i]);
    return text;
}

void path_option_add(CLI::App &command, const std::string &name, std::string &path, const std::string &help) {
    const auto take = [option = long_name(name), &path](const std::string &text) {
        constexpr size_t kMost = sizeof(sockaddr_un::sun_path) - 1;
        if (text.empty() || text.size() > kMost)
            throw UsageError(fmt::format("{} is a path of 1 to {} characters, not {}", option, kMost, in_quotes(text)));
        path = text;
    };
    text_option_add(command, name, take, help, "PATH");
}

void count_option_add(CLI::App &command, const std::string &name, uint64_t &count, const std::string &help) {
    const auto take = [option = long_name(name), &count](const std::string &text) {
        if (!number_read(text, count) || count < 1 || count > kMostCount)
            throw UsageError(
                fmt::format("{} is a whole number from 1 to {}, not {}", option, kMostCount, in_quotes(text)));
    };
    text_option_add(command, name, take, help, "N");
}

void seconds_option_add(CLI::App &command, const std::string &name, double &seconds, const std::string &help) {
    const auto take = [option = long_name(name), &seconds](const std::string &text) {
        // Written so that "nan", which is neither more nor less than anything, is wrong.
        if (!number_read(text, seconds) || !(seconds > 0 && seconds <= kMostSeconds))
            throw UsageError(fmt::format("{} is a number of seconds above 0, {:.0f} at most, not {}", option,
                                         kMostSeconds, in_quotes(text)));
    };
    text_option_add(command, name, take, help, "SECONDS");
}

void names_option_add(CLI::App &command, const std::string &name, std::vector<std::string> &names,
                      const std::string &help, std::string (*check)(const std::string &)) {
    const auto take = [option = long_name(name), &names, check](const std::vector<std::string> &given) {
        for (const std::string &one : given) {
            const std::string wrong = one.empty()        ? option + " wants a name, not an empty one"
                                      : check == nullptr ? std::string()
                                                         : check(one);
            if (!wrong.empty())
                throw UsageError(wrong);
        }
        names = given;
    };
    command.add_option_function<std::vector<std::string>>(name, take, help)->option_text("NAME ...");
}

void files_option_add(CLI::App &command, const std::string &name, std::vector<std::string> &files, size_t most,
                      const std::string &help) {
    const auto take = [option = long_name(name), &files, most](const std::vector<std::string> &given) {
        if (given.size() > most)
            throw UsageError(fmt::format("{} takes {} files at most", option, most));
        for (const std::string &one : given)
            if (one.empty())
                throw UsageError(option + " wants a file, not an empty name");
        files = given;
    };
    command.add_option_function<std::vector<std::string>>(name, take, help)->option_text("FILE ...");
}

std::string usage_sentence(const CLI::App &app, const CLI::ParseError &error) {
    const CLI::App *command = chosen_command(app);
    const std::string help =
        fmt::format(". Try voicectl {}--help.", command == nullptr ? "" : command->get_name() + " ");
    if (dynamic_cast<const UsageError *>(&error) != nullptr)
        return error.what() + help;
    const std::vector<std::string> rest = app.remaining(true);
    if (dynamic_cast<const CLI::ExtrasError *>(&error) != nullptr && !rest.empty())
        return unexpected(rest.front(), command) + help;
    if (dynamic_cast<const CLI::RequiredError *>(&error) != nullptr)
        return (rest.empty() ? "what to do is missing" : unexpected(rest.front(), command)) + help;
    // What is left begins with the option's name.
    const std::string what = error.what();
    const std::string option = what.substr(0, what.find(':'));
    if (dynamic_cast<const CLI::ArgumentMismatch *>(&error) != nullptr && option.starts_with("-"))
        return option + " wants a value" + help;
    return printable(what) + help;
}

} // namespace voicectl

// SPDX-License-Identifier: MIT
#include "params.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "common.h"
#include "hex.h"
#include "options.h"
#include "params_text.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr size_t kMostInput = 4 * kMostParamsBytes; // two digits a byte, and as much again of blanks and remarks

struct ParamsOptions {
    std::vector<std::string> words;
    ParamsForm form = ParamsForm::buffer;
    ByteOrder order = byte_order_here();
    bool write = false;
    bool json = false;
};

// Nothing: it cannot be read, or is too long, which has been said.
std::optional<std::string> standard_input() {
    std::string text;
    std::array<char, 4096> part{};
    size_t size = 0;
    while (text.size() <= kMostInput && (size = std::fread(part.data(), 1, part.size(), stdin)) > 0)
        text.append(part.data(), size);
    if (std::ferror(stdin) != 0) {
        complain(fmt::format("standard input cannot be read: {}", std::strerror(errno)));
        return std::nullopt;
    }
    if (text.size() > kMostInput) {
        complain(fmt::format("standard input holds more than {} characters: a record is shorter", kMostInput));
        return std::nullopt;
    }
    return text;
}

struct FormName {
    const char *word;
    ParamsForm form;
};
constexpr FormName kForms[] = {{"buffer", ParamsForm::buffer},
                               {"signal", ParamsForm::signal},
                               {"event", ParamsForm::event},
                               {"set", ParamsForm::set}};

// What the bytes are instead; empty when they are nothing of it.
std::string other_form(const ParamsOptions &options, const Bytes &bytes) {
    for (const FormName &other : kForms)
        if (other.form != options.form && params_read(other.form, options.order, bytes).problem.empty())
            return fmt::format(" (it is whole with --as {})", other.word);
    return {};
}

int params_show(const ParamsOptions &options, const Bytes &bytes) {
    const ParamsRead read = params_read(options.form, options.order, bytes);
    const int status = output_write(options.json ? read.json + (read.json.empty() ? "" : "\n") : read.text);
    if (read.problem.empty())
        return status;
    complain(read.problem + other_form(options, bytes));
    return kFailure;
}

int params_run(const ParamsOptions &options) {
    std::string text;
    const bool from_input = options.words.size() == 1 && options.words.front() == "-";
    if (from_input) {
        const std::optional<std::string> input = standard_input();
        if (!input)
            return kFailure;
        text = *input;
    } else {
        for (const std::string &word : options.words)
            text += (text.empty() ? "" : "\n") + word;
    }
    if (options.write) {
        const ParamsWritten written = params_write(options.form, options.order, text);
        if (written.problem.empty())
            return output_write(hex_digits(written.bytes) + "\n");
        complain(written.problem);
        return kFailure;
    }
    const std::optional<Bytes> bytes = hex_read(text);
    if (bytes)
        return params_show(options, *bytes);
    complain(fmt::format("{} is no hexadecimal text of whole bytes", in_quotes(text)));
    return kFailure;
}

} // namespace

void params_add(CLI::App &app, std::function<int()> &run) {
    const auto options = std::make_shared<ParamsOptions>();
    CLI::App &command = *app.add_subcommand("params", "Read or write a parameter buffer, or a record around one");
    command.footer("Examples: voicectl params --order big 110902070000000400000019\n"
                   "          voicectl params --write --as signal 'signal = al_ri' 'al_ri_freq = 25'\n");
    words_add(command, "HEX|LINE", options->words,
              "What to read; with --write a line each of text; - reads standard input");
    choice_option_add<ParamsForm>(command, "-a,--as", options->form,
                                  {{"buffer", ParamsForm::buffer},
                                   {"signal", ParamsForm::signal},
                                   {"event", ParamsForm::event},
                                   {"set", ParamsForm::set}},
                                  "What it is; without it a bare parameter buffer");
    choice_option_add<ByteOrder>(command, "-o,--order", options->order,
                                 {{"little", ByteOrder::little}, {"big", ByteOrder::big}},
                                 "Byte order; without it that of this machine");
    command.add_flag("-w,--write", options->write, "Write the bytes of text instead");
    command.add_flag("-j,--json", options->json, "One JSON object");
    command.callback([options, &run] {
        if (options->words.empty())
            throw UsageError("what to read is missing, or - for standard input");
        if (options->write && options->json)
            throw UsageError("--write and --json do not go together");
        run = [options] { return params_run(*options); };
    });
}

} // namespace voicectl

// SPDX-License-Identifier: MIT
// The subcommand "ladder": a picture of what passed, from a capture or live.
#include "ladder.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "capture_reader.h"
#include "common.h"
#include "connection.h"
#include "filter_options.h"
#include "ladder_feed.h"
#include "ladder_page.h"
#include "ladder_svg.h"
#include "ladder_text.h"
#include "options.h"
#include "picture_file.h"
#include "run_limit.h"
#include "tap_drain.h"
#include "text.h"

namespace voicectl {

namespace {

enum class PictureForm { by_name, html, svg, mermaid, text };

constexpr RunLimit::Tick kLadderTick{200};
constexpr size_t kPlainColumns = 120; // of text that no terminal shows
constexpr size_t kMostSvgRows = 5000; // a taller picture is shown by few programs
constexpr size_t kMostMermaidRows = 1000;

struct LadderOptions {
    std::string file{}; // empty: live
    std::string socket{};
    std::string target = "-";
    PictureForm form = PictureForm::by_name;
    bool force = false;
    Filter filter{};
    uint64_t count = 0; // 0: no limit
    double seconds = 0; // 0: no limit
};

PictureForm form_by_name(std::string_view target) {
    constexpr std::pair<std::string_view, PictureForm> kEndings[] = {{".html", PictureForm::html},
                                                                     {".htm", PictureForm::html},
                                                                     {".svg", PictureForm::svg},
                                                                     {".mmd", PictureForm::mermaid}};
    for (const auto &[ending, form] : kEndings)
        if (target.ends_with(ending))
            return form;
    return PictureForm::text;
}

std::string title_of(const std::string &path) {
    return path == "-" ? "standard input" : path.substr(path.rfind('/') + 1);
}

struct CloseFile {
    int descriptor;
    ~CloseFile() {
        if (descriptor > STDERR_FILENO)
            close(descriptor);
    }
};

// One run of the subcommand.
class LadderRun {
public:
    explicit LadderRun(LadderOptions options) : options_(std::move(options)), feed_(options_.filter) {}

    int run() {
        if (options_.target != "-")
            if (const std::string wrong = picture_target_problem(options_.target, options_.force); !wrong.empty())
                return fail(wrong);
        const bool is_whole = options_.file.empty() ? live_read() : capture_read(options_.file);
        LadderModel ladder = feed_.finish(title_);
        if (ladder.rows.empty()) {
            if (is_whole)
                complain(feed_.taken() == 0 ? "there was no message" : "no message is one of those that were chosen");
            return kFailure;
        }
        if (ladder.left_out > 0)
            complain(
                fmt::format("{} messages left out: a ladder has {} at most, and {} MiB; --endpoint and its like choose",
                            ladder.left_out, kMostLadderRows, kMostLadderBytes >> 20));
        if (feed_.sound_left_out() > 0)
            complain(fmt::format("{} packets of sound left out: a ladder has {} streams at most",
                                 feed_.sound_left_out(), SoundStreams::kMostStreams));
        const int status = write(ladder);
        return is_whole ? status : kFailure;
    }

private:
    static int fail(const std::string &sentence) {
        complain(sentence);
        return kFailure;
    }

    bool counted_out() const { return options_.count != 0 && feed_.shown() >= options_.count; }

    // Whether all of it was read; else it has been said why not.
    bool capture_read(const std::string &path) {
        title_ = title_of(path);
        const CloseFile file{path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY)};
        const std::string name = path == "-" ? "standard input" : in_quotes(path);
        if (file.descriptor < 0) {
            complain(fmt::format("{} cannot be read: {}", name, std::strerror(errno)));
            return false;
        }
        CaptureReader reader(file.descriptor);
        CapturedPacket packet;
        while (!counted_out() && reader.next(packet))
            feed_.take(packet);
        if (reader.strange() > 0)
            complain(fmt::format("{}: {} packets of link type {} left out, captures of the bus have 252", name,
                                 reader.strange(), reader.strange_link_type()));
        if (reader.broken() > 0)
            complain(fmt::format("{}: {} packets left out: their lengths, interfaces or tags are wrong", name,
                                 reader.broken()));
        if (!reader.fault().empty())
            complain(fmt::format("{}: {}", name, reader.fault()));
        return reader.fault().empty() && reader.broken() == 0;
    }

    bool live_read() {
        const Address address = address_of(options_.socket);
        title_ = std::string(address_path(address.uri));
        RunLimit limit(options_.seconds);
        std::string why;
        const Tap tap = tap_open(address, why);
        if (tap == nullptr) {
            complain(why);
            return false;
        }
        bool watching = false;
        while (!limit.reached() && !counted_out()) {
            kex_tap_record_t record{};
            const int found = kex_tap_next(tap.get(), &record);
            if (const std::string refusal = found > 0 ? tap_refusal(record) : ""; !refusal.empty()) {
                complain(refusal);
                return false;
            }
            if (found > 0) {
                if (!watching && record.kind != KEX_TAP_REFUSED)
                    complain(fmt::format("watching {}: an interrupt ends it, then the ladder is written",
                                         printable(address.uri)));
                watching = true;
                feed_.take(record);
                continue;
            }
            if (found < 0) {
                complain("the voice application is gone");
                break;
            }
            limit.wait({kex_tap_descriptor(tap.get())}, -1, kLadderTick);
        }
        if (limit.reached())
            tap_drain(
                *tap, [this] { return !counted_out(); },
                [this](const kex_tap_record_t &record) { feed_.take(record); });
        return true;
    }

    // At most so many rows; that there are more is said.
    static size_t limited(const LadderModel &ladder, size_t most, const char *what) {
        if (ladder.rows.size() > most)
            complain(fmt::format("{} messages left out: {} has {} at most; --endpoint and its like choose",
                                 ladder.rows.size() - most, what, most));
        return most;
    }

    std::string picture(const LadderModel &ladder) const {
        switch (options_.form) {
        case PictureForm::html:
            return ladder_page(ladder);
        case PictureForm::svg:
            return ladder_svg(ladder, limited(ladder, kMostSvgRows, "an SVG picture"));
        case PictureForm::mermaid:
            return ladder_mermaid(ladder, limited(ladder, kMostMermaidRows, "a Mermaid diagram"));
        default:
            break;
        }
        const size_t columns = options_.target == "-" ? terminal_columns() : 0;
        if (columns != 0 && columns < ladder_text_columns(ladder))
            complain(fmt::format("{} lanes want {} columns: --endpoint and its like choose, -w FILE.html shows all",
                                 ladder.lanes.size(), ladder_text_columns(ladder)));
        return ladder_text(ladder, columns != 0 ? columns : kPlainColumns);
    }

    int write(const LadderModel &ladder) const {
        const std::string text = picture(ladder);
        if (options_.target == "-")
            return output_write(text);
        const std::string wrong = picture_write(options_.target, text, options_.force);
        return wrong.empty() ? kSuccess : fail(wrong);
    }

    LadderOptions options_;
    LadderFeed feed_;
    std::string title_;
};

int ladder_run(LadderOptions options) {
    if (options.form == PictureForm::by_name)
        options.form = form_by_name(options.target);
    const bool is_file = options.form == PictureForm::html || options.form == PictureForm::svg;
    if (is_file && options.target == "-" && isatty(STDOUT_FILENO) != 0) {
        complain("standard output is a terminal: -w FILE keeps the picture");
        return kUsage;
    }
    RunLimit::signals_take();
    return LadderRun(std::move(options)).run();
}

} // namespace

void ladder_add(CLI::App &app, std::function<int()> &run) {
    const auto options = std::make_shared<LadderOptions>();
    CLI::App &command = *app.add_subcommand("ladder", "Draw what passed: lanes, messages, calls with their answers");
    command.footer("Example: voicectl ladder calls.pcapng -w calls.html\n"
                   "calls.pcapng is what voicectl capture wrote; without a file the voice application is watched.\n");
    const CLI::Option *file =
        command.add_option("FILE|-", options->file, "A capture; - reads standard input; without it live")
            ->option_text(" ");
    choice_option_add<PictureForm>(command, "-o,--output", options->form,
                                   {{"html", PictureForm::html},
                                    {"svg", PictureForm::svg},
                                    {"mermaid", PictureForm::mermaid},
                                    {"text", PictureForm::text}},
                                   "The form; without it as the name behind --write ends, else text");
    const auto take = [&options = *options](const std::string &text) {
        if (text.empty())
            throw UsageError("--write wants a file or -, not an empty name");
        options.target = text;
    };
    text_option_add(command, "-w,--write", take, "Where to; without it standard output", "FILE|-");
    command.add_flag("-f,--force", options->force, "Replace a file that is there");
    filter_options_add(command, options->filter, "--function");
    path_option_add(command, "-s,--socket", options->socket,
                    "Live: the voice application's socket (else where $ZIL_VOIP_IPC_SOCKET_URI says)");
    count_option_add(command, "-n,--count", options->count, "End after so many messages");
    seconds_option_add(command, "--for", options->seconds, "Live: end after so many seconds");
    command.callback([options, file, &run] {
        if (file->count() > 0 && options->file.empty())
            throw UsageError("FILE wants a file or -, not an empty name");
        if (!options->file.empty() && (!options->socket.empty() || options->seconds > 0))
            throw UsageError("--socket and --for are for a live ladder, without a file");
        run = [options] { return ladder_run(*options); };
    });
}

} // namespace voicectl

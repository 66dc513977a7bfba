// SPDX-License-Identifier: MIT
// The subcommand "top": who is busy on the bus, who waits, who makes errors.
#include "top.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "bus_follow.h"
#include "common.h"
#include "counts.h"
#include "counts_rate.h"
#include "counts_text.h"
#include "options.h"

namespace voicectl {

namespace {

constexpr double kShortestInterval = 0.1; // seconds

struct TopOptions {
    std::string socket; // empty: where the environment says
    bool json = false;
    bool reconnect = false;
    uint64_t count = 0; // 0: no limit
    double seconds = 0; // 0: no limit
    double interval = 1;
};

// Whether what stands on the terminal can be replaced.
bool can_replace() {
    const char *terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

// One run of the subcommand.
class Top {
public:
    explicit Top(const TopOptions &options)
        : options_(options), limit_(options.seconds), rate_(now_ns()), in_place_(!options.json && can_replace()) {}

    int run() {
        next_ = RunLimit::Clock::now() + interval();
        return bus_follow({.address = address_of(options_.socket),
                           .limit = limit_,
                           .counts = counts_,
                           .reconnect = options_.reconnect,
                           .connected = connected_,
                           .turn = [this] { return turn(); },
                           .output = STDOUT_FILENO,
                           .tick = std::min(RunLimit::Tick(200), tick())});
    }

private:
    RunLimit::Tick tick() const { return std::chrono::ceil<RunLimit::Tick>(interval()); }
    RunLimit::Clock::duration interval() const {
        return std::chrono::duration_cast<RunLimit::Clock::duration>(std::chrono::duration<double>(options_.interval));
    }

    bool turn() {
        const auto now = RunLimit::Clock::now();
        if (now < next_)
            return true;
        // Not as often as has been missed: the process may have been stopped.
        next_ = std::max(next_ + interval(), now);
        show(rate_.look(counts_, now_ns(), connected_));
        return !limit_.reader_left() && (options_.count == 0 || ++shown_ < options_.count);
    }

    void show(const CountsView &view) {
        std::string text;
        if (options_.json)
            text = counts_json(view) + "\n";
        else if (in_place_)
            text = table(view);
        else
            text = counts_line(view) + "\n";
        if (!output_add(text, true))
            limit_.reader_leaves();
    }

    // The table in the place of the one before.
    std::string table(const CountsView &view) {
        winsize size{};
        const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0;
        // The last column and the last line stay free: the cursor must not scroll.
        const TableForm form = {.columns = known ? std::max<size_t>(size.ws_col, 2) - 1 : 79,
                                .lines = known ? std::max<size_t>(size.ws_row, 2) - 1 : 23,
                                .colour = wants_colour()};
        const std::string text = counts_table(view, form);
        const std::string begin = lines_ == 0 ? "\r\x1B[J" : fmt::format("\x1B[{}A\r\x1B[J", lines_);
        lines_ = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
        return begin + text;
    }

    TopOptions options_;
    RunLimit limit_;
    Counts counts_;
    CountsRate rate_;
    bool in_place_;
    bool connected_ = false;
    uint64_t shown_ = 0;
    size_t lines_ = 0; // of the table that stands there
    RunLimit::Clock::time_point next_;
};

int top(const TopOptions &options) {
    RunLimit::signals_take();
    return Top(options).run();
}

} // namespace

void top_add(CLI::App &app, std::function<int()> &run) {
    const auto options = std::make_shared<TopOptions>();
    CLI::App &command = *app.add_subcommand("top", "Show who is busy on the bus, who waits, who makes errors");
    command.footer("Example: voicectl top --interval 0.5 --count 2\n"
                   "On a terminal the table stays in its place; elsewhere it is a line each time.\n"
                   "MSG/S: messages a second; WAITS: calls without an answer; LONGEST: since when; AGE: since the last "
                   "message.\n");
    path_option_add(command, "-s,--socket", options->socket,
                    "The voice application's socket (else where $ZIL_VOIP_IPC_SOCKET_URI says)");
    seconds_option_add(command, "-i,--interval", options->interval, "Show so often; every second without it");
    count_option_add(command, "-n,--count", options->count, "End after so many times");
    seconds_option_add(command, "--for", options->seconds, "End after so many seconds");
    command.add_flag("-r,--reconnect", options->reconnect, "Wait for the voice application, also when it goes");
    command.add_flag("-j,--json", options->json, "One JSON object each time");
    command.callback([options, &run] {
        if (options->interval < kShortestInterval)
            throw UsageError(fmt::format("--interval is {} s at least", kShortestInterval));
        run = [options] { return top(*options); };
    });
}

} // namespace voicectl

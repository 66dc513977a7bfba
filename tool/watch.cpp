// SPDX-License-Identifier: MIT
// The subcommand "watch": a live ladder of all that passes between the voice application and its plugins.
#include "watch.h"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include "common.h"
#include "connection.h"
#include "filter_options.h"
#include "options.h"
#include "run_limit.h"
#include "show.h"
#include "tap_drain.h"
#include "tap_turn.h"
#include "text.h"
#include "traffic.h"

namespace voicectl {

namespace {

using Clock = RunLimit::Clock;
using std::chrono::milliseconds;

constexpr milliseconds kTick{200};      // how often waits are looked at, and how often a lost bus is tried
constexpr milliseconds kPatience{2000}; // a name that nothing has come by after it is perhaps misspelt
constexpr const char *kEnvironment =
    "Environment:\n"
    "  ZIL_VOIP_IPC_SOCKET_URI     Where the voice application listens, kex://ipc:[PATH]\n"
    "  NO_COLOR                    When set and not empty, no colours on a terminal\n"
    "  TERM                        dumb: no colours\n"
    "  COLUMNS                     Width of a terminal that does not know its own\n";
constexpr size_t kUsualColumns = 80;
constexpr size_t kMostColumns = 10'000;
constexpr size_t kRows = 2; // of a message on a terminal

struct Options {
    std::string socket; // empty: where the environment says
    Filter filter;
    bool json = false;
    bool full = false;
    bool reconnect = false;
    uint64_t count = 0; // 0: no limit
    double seconds = 0; // 0: no limit
};

// A terminal that does not know its width may have it in its environment.
size_t environment_columns() {
    const char *text = std::getenv("COLUMNS");
    const unsigned long columns = text == nullptr ? 0 : std::strtoul(text, nullptr, 10);
    return columns == 0 || columns > kMostColumns ? kUsualColumns : columns;
}

// On a terminal rows are broken between words. Elsewhere a message is one line, for grep and the like, as long as the
// rows that it would have.
Form form_of(const Options &options) {
    if (options.full)
        return {.full = true, .colour = wants_colour()};
    if (isatty(STDOUT_FILENO) == 0)
        return {.columns = kRows * kUsualColumns, .rows = 1};
    const size_t columns = terminal_columns();
    return {.colour = wants_colour(), .columns = columns != 0 ? columns : environment_columns(), .rows = kRows};
}

// One run of the subcommand.
class Watch {
public:
    explicit Watch(Options options)
        : options_(std::move(options)), address_(address_of(options_.socket)), limit_(options_.seconds) {}

    int run() {
        bool was_connected = false;
        for (const std::string &function : options_.filter.functions)
            if (!is_known_function(function))
                complain(fmt::format("no function {} in the voice system; another program may have it",
                                     in_quotes(function)));
        do { // once in any case: a short watch on a busy machine has found nobody missing that it never looked for
            std::string why;
            Tap tap = tap_open(address_, why);
            if (tap != nullptr) {
                was_connected = true;
                follow(*tap);
                traffic_.clear();
                if (!done() && !refused_)
                    complain("the voice application is gone");
            } else if (!options_.reconnect) {
                complain(why);
                return kFailure;
            }
            if (!options_.reconnect)
                break;
            if (!done())
                std::this_thread::sleep_for(kTick);
        } while (!done());
        return was_connected && !refused_ && !limit_.reader_left() ? kSuccess : kFailure;
    }

private:
    bool done() const { return limit_.reached() || counted_out(); }
    bool counted_out() const { return options_.count != 0 && shown_ >= options_.count; }

    // Shows what passes until the end of the run or of the bus.
    void follow(kex_tap_t &tap) {
        Unseen unseen(options_.filter);
        Clock::time_point patience = Clock::now() + kPatience;
        bool watching = false;
        TapTurn records;
        while (!done()) {
            kex_tap_record_t record{};
            const int found = records.next(tap, record);
            if (found < 0)
                break;
            if (found > 0 && is_refusal(record))
                return;
            // Said no earlier: whoever acts on it is seen from his first message on.
            if (found > 0 && !watching && record.kind != KEX_TAP_REFUSED) {
                watching = true;
                refused_ = false;
                complain(fmt::format("watching {}", printable(address_.uri)));
            }
            if (found > 0) {
                take(record, unseen);
                continue;
            }
            if (Clock::now() >= patience && unseen.something_came()) {
                tell_unseen(unseen);
                patience = Clock::time_point::max();
            }
            for (const Step &step : traffic_.overdue(now_ns()))
                show(step);
            write("", true);
            limit_.wait({kex_tap_descriptor(&tap)}, STDOUT_FILENO, records.end(kTick));
        }
        if (limit_.reached())
            tap_drain(
                tap, [this] { return !limit_.reader_left() && !counted_out(); },
                [&](const kex_tap_record_t &record) {
                    if (!is_refusal(record))
                        take(record, unseen);
                });
        write("", true);
        if (patience != Clock::time_point::max())
            tell_unseen(unseen);
    }

    // Of this tap, which has been said then.
    bool is_refusal(const kex_tap_record_t &record) {
        const std::string refusal = tap_refusal(record);
        if (refusal.empty())
            return false;
        if (!refused_) // not at each attempt
            complain(refusal);
        refused_ = true;
        return true;
    }

    void take(const kex_tap_record_t &record, Unseen &unseen) {
        const std::optional<Step> step = traffic_.next(record);
        if (!step)
            return;
        unseen.note(*step);
        show(*step);
    }

    // What is said about the watching itself goes to standard error, so that standard output holds messages only.
    static void tell_unseen(const Unseen &unseen) {
        for (const std::string &sentence : unseen.sentences())
            complain(sentence);
    }

    void show(const Step &step) {
        if (counted_out() || !options_.filter.passes(step))
            return;
        write((options_.json ? json_line(step) : ladder_line(step, form_of(options_))) + "\n", false);
        ++shown_;
    }

    void write(const std::string &text, bool at_once) {
        if (!limit_.reader_left() && !output_add(text, at_once))
            limit_.reader_leaves();
    }

    Options options_;
    Address address_;
    RunLimit limit_;
    uint64_t shown_ = 0;
    bool refused_ = false; // the tap, the last time
    Traffic traffic_;
};

int watch(const Options &options) {
    RunLimit::signals_take();
    return Watch(options).run();
}

} // namespace

void watch_add(CLI::App &app, std::function<int()> &run) {
    const auto options = std::make_shared<Options>();
    CLI::App &command =
        *app.add_subcommand("watch", "Show all that passes between the voice application and its plugins");
    command.footer(kEnvironment);
    path_option_add(command, "-s,--socket", options->socket,
                    "The voice application's socket (else where $ZIL_VOIP_IPC_SOCKET_URI says)");
    filter_options_add(command, options->filter, "-f,--function");
    command.add_flag("-j,--json", options->json, "One JSON object per line");
    command.add_flag("-l,--long", options->full, "Full names and every value, on one line of any length");
    count_option_add(command, "-n,--count", options->count, "End after so many messages");
    seconds_option_add(command, "--for", options->seconds, "End after so many seconds");
    command.add_flag("-r,--reconnect", options->reconnect, "Wait for the voice application, also when it goes");
    command.callback([options, &run] { run = [options] { return watch(*options); }; });
}

} // namespace voicectl

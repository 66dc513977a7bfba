// SPDX-License-Identifier: MIT
// The subcommand "watch": a live ladder of all that passes between the voice application and its plugins.
#include "watch.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <CLI/CLI.hpp>
#include <poll.h>
#include <unistd.h>

#include "common.h"
#include "filter.h"
#include "kex_tap.h"
#include "show.h"
#include "traffic.h"

namespace voicectl {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kTick{200}; // how often waits are looked at, and how often a lost bus is tried
constexpr size_t kWhy = 256;

struct Options {
    std::string uri;
    Filter filter;
    bool json = false;
    bool reconnect = false;
    uint64_t count = 0; // 0: no limit
    double seconds = 0; // 0: no limit
};

struct CloseTap {
    void operator()(kex_tap_t *tap) const { kex_tap_close(tap); }
};
using Tap = std::unique_ptr<kex_tap_t, CloseTap>;

volatile std::sig_atomic_t stopped = 0;

void stop(int) {
    stopped = 1;
}

// One run of the subcommand.
class Watch {
public:
    explicit Watch(Options options)
        : options_(std::move(options)), colour_(!options_.json && wants_colour()), end_(Clock::time_point::max()) {
        if (options_.seconds > 0)
            end_ = Clock::now() +
                   std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options_.seconds));
    }

    int run() {
        bool was_connected = false;
        while (!done()) {
            std::string why;
            Tap tap = open(why);
            if (tap != nullptr) {
                was_connected = true;
                tell(fmt::format("watching {}", options_.uri));
                follow(*tap);
                traffic_.clear();
                if (!done())
                    tell("the voice application is gone");
            } else if (!options_.reconnect) {
                complain(why);
                return kFailure;
            }
            if (!options_.reconnect)
                break;
            if (!done())
                std::this_thread::sleep_for(kTick);
        }
        return was_connected && !broken_pipe_ ? kSuccess : kFailure;
    }

private:
    bool done() const { return stopped != 0 || broken_pipe_ || counted_out() || Clock::now() >= end_; }
    bool counted_out() const { return options_.count != 0 && shown_ >= options_.count; }

    // What is said about the watching itself goes to standard error, so that standard output holds messages only.
    static void tell(const std::string &text) { complain(text); }

    Tap open(std::string &why) const {
        char reason[kWhy] = "";
        Tap tap(kex_tap_open(options_.uri.c_str(), reason, sizeof reason));
        why = reason;
        return tap;
    }

    // Shows what passes until the end of the run or of the bus.
    void follow(kex_tap_t &tap) {
        while (!done()) {
            kex_tap_record_t record{};
            const int found = kex_tap_next(&tap, &record);
            if (found < 0)
                return;
            if (found > 0) {
                if (const std::optional<Step> step = traffic_.next(record))
                    show(*step);
                continue;
            }
            for (const Step &step : traffic_.overdue(now_ns()))
                show(step);
            if (std::fflush(stdout) != 0)
                broken_pipe_ = true;
            wait(kex_tap_descriptor(&tap));
        }
        std::fflush(stdout);
    }

    // Until something may be there, a tick has passed, or nobody reads the output any more.
    void wait(int descriptor) {
        const auto left =
            std::chrono::duration_cast<milliseconds>(std::max(end_ - Clock::now(), Clock::duration::zero()));
        pollfd watched[] = {{descriptor, POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
        poll(watched, std::size(watched), static_cast<int>(std::min(left, kTick).count()));
        if ((watched[1].revents & (POLLERR | POLLHUP)) != 0)
            broken_pipe_ = true;
    }

    void show(const Step &step) {
        if (counted_out() || !options_.filter.passes(step))
            return;
        const std::string line = (options_.json ? json_line(step) : ladder_line(step, colour_)) + "\n";
        if (std::fputs(line.c_str(), stdout) == EOF)
            broken_pipe_ = true;
        ++shown_;
    }

    Options options_;
    bool colour_;
    bool broken_pipe_ = false;
    uint64_t shown_ = 0;
    Clock::time_point end_;
    Traffic traffic_;
};

int watch(const Options &options) {
    struct sigaction action {};
    action.sa_handler = stop;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN); // a reader that leaves ends the watch, not with a signal
    return Watch(options).run();
}

} // namespace

void add_watch(CLI::App &app, std::function<int()> &run) {
    const auto options = std::make_shared<Options>();
    options->uri = default_uri();
    CLI::App *watch_command =
        app.add_subcommand("watch", "Show all that passes between the voice application and its plugins");
    watch_command
        ->add_option_function<std::string>(
            "-s,--socket", [options](const std::string &path) { options->uri = "kex://ipc:[" + path + "]"; },
            "The voice application's socket (else where $ZIL_VOIP_IPC_SOCKET_URI says)")
        ->option_text("PATH");
    Filter &filter = options->filter;
    watch_command->add_option("-e,--endpoint", filter.endpoints, "Only this endpoint: FXS1, or fxs_a.FXS1")
        ->option_text("NAME ...");
    watch_command->add_option("-p,--plugin", filter.plugins, "Only this plugin")->option_text("NAME ...");
    watch_command->add_option("-f,--function", filter.functions, "Only calls of this function, and their replies")
        ->option_text("NAME ...");
    watch_command->add_option("-k,--package", filter.packages, "Only messages of this package: al, cg, zil ...")
        ->option_text("NAME ...");
    const std::map<std::string, Filter::Direction> directions{
        {"both", Filter::Direction::both}, {"in", Filter::Direction::in}, {"out", Filter::Direction::out}};
    watch_command
        ->add_option("-d,--direction", filter.direction, "in: what plugins ask; out: what the application asks")
        ->transform(CLI::CheckedTransformer(directions))
        ->option_text("in|out|both");
    watch_command->add_flag("-j,--json", options->json, "One JSON object per line");
    watch_command->add_option("-n,--count", options->count, "End after so many lines")
        ->check(CLI::PositiveNumber)
        ->option_text("N");
    watch_command->add_option("--for", options->seconds, "End after so many seconds")
        ->check(CLI::PositiveNumber)
        ->option_text("SECONDS");
    watch_command->add_flag("-r,--reconnect", options->reconnect, "Wait for the voice application, also when it goes");
    watch_command->callback([options, &run] { run = [options] { return watch(*options); }; });
}

} // namespace voicectl

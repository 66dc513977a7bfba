// SPDX-License-Identifier: MIT
// The subcommand "stats": what has passed, counted; for people, for programs, for scrapers of metrics.
#include "stats.h"

#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include "bus_follow.h"
#include "common.h"
#include "counts.h"
#include "counts_rate.h"
#include "counts_text.h"
#include "options.h"
#include "prometheus.h"
#include "scrape_server.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr double kStatsSeconds = 10;

struct StatsOptions {
    std::string socket; // empty: where the environment says
    std::string listen; // empty: once, at the end
    bool json = false;
    bool prometheus = false;
    double seconds = 0; // 0: not given
};

// One run of the subcommand.
class Stats {
public:
    explicit Stats(const StatsOptions &options)
        : options_(options), limit_(options.seconds == 0 && options.listen.empty() ? kStatsSeconds : options.seconds),
          begin_(now_ns()) {}

    // Counts once, until the end of the run.
    int once() {
        const int status = follow();
        return status == kSuccess ? output_write(text()) : status;
    }

    // Answers at a socket as long as the run lasts, also while nobody listens at the bus.
    int serve() {
        if (const std::string wrong = server_.open(options_.listen, kPrometheusType); !wrong.empty()) {
            complain(wrong);
            return kFailure;
        }
        complain(fmt::format("metrics at {}", printable(options_.listen)));
        return follow();
    }

private:
    int follow() {
        return bus_follow({.address = address_of(options_.socket),
                           .limit = limit_,
                           .counts = counts_,
                           .reconnect = !options_.listen.empty(),
                           .connected = connected_,
                           .turn =
                               [this] {
                                   server_.serve([this] { return text(); });
                                   return true;
                               },
                           .output = options_.listen.empty() ? STDOUT_FILENO : -1,
                           .descriptor = server_.descriptor()});
    }

    // Each rate is that since the begin.
    std::string text() const {
        const CountsView view = CountsRate(begin_).look(counts_, now_ns(), connected_);
        return options_.prometheus ? prometheus_text(view)
               : options_.json     ? counts_json(view) + "\n"
                                   : counts_table(view, {});
    }

    StatsOptions options_;
    RunLimit limit_;
    uint64_t begin_;
    Counts counts_;
    ScrapeServer server_;
    bool connected_ = false;
};

int stats(const StatsOptions &options) {
    RunLimit::signals_take();
    Stats run(options);
    return options.listen.empty() ? run.once() : run.serve();
}

} // namespace

void stats_add(CLI::App &app, std::function<int()> &run) {
    const auto options = std::make_shared<StatsOptions>();
    CLI::App &command = *app.add_subcommand("stats", "Count what passes: a table, JSON, or metrics for Prometheus");
    command.footer("Examples: voicectl stats --for 1\n"
                   "          voicectl stats --prometheus --for 1\n"
                   "At a socket, for a scraper: voicectl stats --prometheus --listen /run/voice/metrics\n");
    path_option_add(command, "-s,--socket", options->socket,
                    "The voice application's socket (else where $ZIL_VOIP_IPC_SOCKET_URI says)");
    seconds_option_add(command, "--for", options->seconds, "Count so long; without it 10, with --listen without end");
    command.add_flag("-j,--json", options->json, "One JSON object");
    command.add_flag("-P,--prometheus", options->prometheus, "Prometheus's text format");
    path_option_add(command, "-l,--listen", options->listen,
                    "Answer scrapers at this socket, by HTTP, also while the application is away");
    command.callback([options, &run] {
        if (options->json && options->prometheus)
            throw UsageError("--json and --prometheus do not go together");
        if (!options->listen.empty() && !options->prometheus)
            throw UsageError("--listen wants --prometheus");
        run = [options] { return stats(*options); };
    });
}

} // namespace voicectl

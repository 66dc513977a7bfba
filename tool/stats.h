// SPDX-License-Identifier: MIT
// The subcommand "stats": what has passed, counted; for people, for programs, for scrapers of metrics.
#ifndef VOICECTL_STATS_H
#define VOICECTL_STATS_H

#include <functional>

namespace CLI {
class App;
}

namespace voicectl {

// Adds the subcommand, as watch_add() does.
void stats_add(CLI::App &app, std::function<int()> &run);

} // namespace voicectl

#endif

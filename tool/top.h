// SPDX-License-Identifier: MIT
// The subcommand "top": who is busy on the bus, who waits, who makes errors.
#ifndef VOICECTL_TOP_H
#define VOICECTL_TOP_H

#include <functional>

namespace CLI {
class App;
}

namespace voicectl {

// Adds the subcommand, as watch_add() does.
void top_add(CLI::App &app, std::function<int()> &run);

} // namespace voicectl

#endif

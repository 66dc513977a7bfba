// SPDX-License-Identifier: MIT
// The subcommand "ladder": a picture of what passed, from a capture or live.
#ifndef VOICECTL_LADDER_H
#define VOICECTL_LADDER_H

#include <functional>

namespace CLI {
class App;
}

namespace voicectl {

// Adds the subcommand, as watch_add() does.
void ladder_add(CLI::App &app, std::function<int()> &run);

} // namespace voicectl

#endif

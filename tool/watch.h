// SPDX-License-Identifier: MIT
// The subcommand "watch": a live ladder of all that passes between the voice application and its plugins.
#ifndef VOICECTL_WATCH_H
#define VOICECTL_WATCH_H

#include <functional>

namespace CLI {
class App;
}

namespace voicectl {

// Adds the subcommand. `run` becomes what carries it out and returns the exit status, once it was chosen.
void watch_add(CLI::App &app, std::function<int()> &run);

} // namespace voicectl

#endif

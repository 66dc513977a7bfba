// SPDX-License-Identifier: MIT
// The subcommand "tree": objects, classes and functions of a running application.
#ifndef VOICECTL_TREE_H
#define VOICECTL_TREE_H

#include <functional>

namespace CLI {
class App;
}

namespace voicectl {

// Adds the subcommand, as watch_add() does.
void tree_add(CLI::App &app, std::function<int()> &run);

} // namespace voicectl

#endif

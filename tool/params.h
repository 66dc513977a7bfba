// SPDX-License-Identifier: MIT
// The subcommand "params": parameter buffers and records, from hexadecimal text to words and back.
#ifndef VOICECTL_PARAMS_H
#define VOICECTL_PARAMS_H

#include <functional>

namespace CLI {
class App;
}

namespace voicectl {

// Adds the subcommand, as watch_add() does.
void params_add(CLI::App &app, std::function<int()> &run);

} // namespace voicectl

#endif

// SPDX-License-Identifier: MIT
// The subcommand "capture": keeps all that passes in a file for Wireshark, tshark and the like.
#ifndef VOICECTL_CAPTURE_H
#define VOICECTL_CAPTURE_H

#include <functional>

namespace CLI {
class App;
}

namespace voicectl {

// Adds the subcommand, as watch_add() does.
void capture_add(CLI::App &app, std::function<int()> &run);

} // namespace voicectl

#endif

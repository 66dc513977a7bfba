// SPDX-License-Identifier: MIT
// The subcommand "doctor": what is wrong with an installation, and how it is mended.
#ifndef VOICECTL_DOCTOR_H
#define VOICECTL_DOCTOR_H

#include <functional>

namespace CLI {
class App;
}

namespace voicectl {

// Adds the subcommand, as watch_add() does.
void doctor_add(CLI::App &app, std::function<int()> &run);

} // namespace voicectl

#endif

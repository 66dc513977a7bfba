// SPDX-License-Identifier: MIT
// Which steps of the traffic are shown.
#ifndef VOICECTL_FILTER_H
#define VOICECTL_FILTER_H

#include <string>
#include <vector>

#include "traffic.h"

namespace voicectl {

// Every list that is not empty must have a member that fits. A reply passes when its call did.
struct Filter {
    enum class Direction { both, in, out }; // in: towards the listener

    std::vector<std::string> endpoints{}; // "FXS1" or "fxs_a.FXS1"
    std::vector<std::string> plugins{};   // plugin or process names
    std::vector<std::string> functions{};
    std::vector<std::string> packages{}; // "al", "zil"
    Direction direction = Direction::both;

    bool passes(const Step &step) const;
};

} // namespace voicectl

#endif

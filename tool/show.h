// SPDX-License-Identifier: MIT
// How a step of traffic is shown: a line of the ladder for people, a line of JSON for programs.
#ifndef VOICECTL_SHOW_H
#define VOICECTL_SHOW_H

#include <cstddef>
#include <string>

#include "traffic.h"

namespace voicectl {

// The form of a ladder.
struct Form {
    bool full = false;   // full names, every item, on one line of any length
    bool colour = false; // terminal sequences; without them the text is plain
    size_t columns = 80; // room of the short form
    size_t rows = 2;
};

// "14:03:07.482 fxs_a FXS1       --> event  off hook  al_of", without a line break at its end. The short form leaves
// out what has no room, and says so with "...".
std::string ladder_line(const Step &step, const Form &form);

// One JSON object, without a line break. tool/README.md lists its fields.
std::string json_line(const Step &step);

} // namespace voicectl

#endif

// SPDX-License-Identifier: MIT
// What a step of traffic tells: its name, what it means, what it carries.
#ifndef VOICECTL_STORY_H
#define VOICECTL_STORY_H

#include <cstdint>
#include <string>
#include <vector>

#include "layout.h"
#include "step.h"

namespace voicectl {

// From left to right, at least one. With `full` all names are whole and every item is there. Of a signal or event of the
// vocabulary the first three are the function, what it means and its name.
std::vector<Piece> story_tell(const Step &step, bool full);

// "0.04 ms", "12 ms", "3.4 s".
std::string duration_words(uint64_t ns);

} // namespace voicectl

#endif

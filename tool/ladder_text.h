// SPDX-License-Identifier: MIT
// A ladder as text, and as a Mermaid diagram.
#ifndef VOICECTL_LADDER_TEXT_H
#define VOICECTL_LADDER_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "ladder_model.h"

namespace voicectl {

constexpr uint64_t kGapNs = 1'000'000'000; // a longer silence is marked

// A line for each row, of so many columns as far as that is enough for all lanes.
std::string ladder_text(const LadderModel &ladder, size_t columns, size_t most_rows = SIZE_MAX);

// How many columns all lanes want.
size_t ladder_text_columns(const LadderModel &ladder);

// A sequence diagram, as Markdown pages of many places show them.
std::string ladder_mermaid(const LadderModel &ladder, size_t most_rows = SIZE_MAX);

} // namespace voicectl

#endif

// SPDX-License-Identifier: MIT
// A ladder as one SVG picture in light colours.
#ifndef VOICECTL_LADDER_SVG_H
#define VOICECTL_LADDER_SVG_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ladder_model.h"

namespace voicectl {

std::string ladder_svg(const LadderModel &ladder, size_t most_rows = SIZE_MAX);

// A printable text inside XML and HTML, in quotes too.
std::string markup_text(std::string_view text);

} // namespace voicectl

#endif

// SPDX-License-Identifier: MIT
// Text from other processes made fit for a terminal and for JSON.
#ifndef VOICECTL_TEXT_H
#define VOICECTL_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace voicectl {

// The text with everything that could steer a terminal written out: control characters, broken UTF-8 and characters
// without a shape of their own become \x1B and the like, a backslash becomes two.
std::string printable(std::string_view text);

// Columns that a printable text takes on a terminal.
size_t columns_of(std::string_view text);

// As much of a printable text as fits into so many columns, with "..." at its end when something is left out.
std::string shortened(std::string_view text, size_t columns);

// Any text for a sentence: printable, in quotes and not too long.
std::string in_quotes(std::string_view text);

// The text as a JSON string, quotes included. Bytes that are no UTF-8 become U+FFFD, what could steer a terminal an
// escape.
std::string json_string(std::string_view text);

} // namespace voicectl

#endif

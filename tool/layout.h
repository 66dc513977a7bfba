// SPDX-License-Identifier: MIT
// Pieces of text laid out in the rows of a terminal.
#ifndef VOICECTL_LAYOUT_H
#define VOICECTL_LAYOUT_H

#include <cstddef>
#include <string>
#include <vector>

namespace voicectl {

// Part of a line. Its text is printable; it breaks at its blanks when no row holds it whole.
struct Piece {
    std::string text{};
    const char *colour = nullptr; // terminal sequence; null: none
    size_t blanks = 2;            // in front of it
};

struct Room {
    size_t columns;
    size_t rows;
    size_t indent; // of the rows after the first one
};

// The pieces in as many rows as needed and no more than there are, separated by line breaks. What does not fit is left
// out, and "..." says so.
std::string pieces_lay_out(const std::vector<Piece> &pieces, const Room &room, bool colour);

// The pieces on one line, whole.
std::string pieces_join(const std::vector<Piece> &pieces, bool colour);

} // namespace voicectl

#endif

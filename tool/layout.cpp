// SPDX-License-Identifier: MIT
// Pieces of text laid out in the rows of a terminal.
#include "layout.h"

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

#include "text.h"

namespace voicectl {

namespace {

constexpr const char *kEndColour = "\x1B[0m";
constexpr std::string_view kLeftOut = " ...";
constexpr size_t kWorthBreaking = 24; // a shorter piece is shown or left out whole
constexpr size_t kWorthCutting = 16;  // and a shorter word

std::string painted(const std::string &text, const char *colour, bool paint) {
    return paint && colour != nullptr && !text.empty() ? fmt::format("{}{}{}", colour, text, kEndColour) : text;
}

// The words of a piece, which it may break between.
std::vector<Piece> words_of(const Piece &piece) {
    std::vector<Piece> words;
    std::string_view rest = piece.text;
    for (size_t blanks = piece.blanks; !rest.empty(); blanks = 1) {
        const size_t end = rest.find(' ', 1);
        words.push_back({std::string(rest.substr(0, end)), piece.colour, blanks});
        rest = end == std::string_view::npos ? "" : rest.substr(end + 1);
    }
    return words;
}

// Rows being filled with pieces. Some columns of the last one are kept free.
class Rows {
public:
    Rows(const Room &room, size_t kept, bool colour) : room_(room), kept_(kept), colour_(colour) {}

    // False: no room is left, and what was left out is marked.
    bool add(const Piece &piece) {
        if (fits_here(piece)) {
            put(piece, piece.text);
            return true;
        }
        if (room_.indent + columns_of(piece.text) <= limit(row_ + 1) && row_ + 1 < room_.rows) {
            begin_row();
            put(piece, piece.text);
            return true;
        }
        if (columns_of(piece.text) <= kWorthBreaking) {
            mark();
            return false;
        }
        for (const Piece &word : words_of(piece))
            if (!add_word(word))
                return false;
        return true;
    }

    const std::string &text() const { return text_; }

private:
    bool add_word(const Piece &word) {
        if (!fits_here(word) && row_ + 1 < room_.rows)
            begin_row();
        if (!fits_here(word)) {
            put_cut(word);
            return false;
        }
        put(word, word.text);
        return true;
    }

    bool fits_here(const Piece &piece) const {
        return at_ + blanks_before(piece) + columns_of(piece.text) <= limit(row_);
    }

    // The beginning of a word that fits no row; a short one is left out whole.
    void put_cut(const Piece &word) {
        const size_t begin = at_ + blanks_before(word);
        if (begin + kWorthCutting < room_.columns && columns_of(word.text) > kWorthCutting)
            put(word, shortened(word.text, room_.columns - begin));
        else
            mark();
    }

    void mark() {
        if (at_ + kLeftOut.size() > room_.columns && row_ + 1 < room_.rows)
            begin_row();
        text_ += at_row_start_ ? kLeftOut.substr(1) : kLeftOut;
    }

    size_t limit(size_t row) const { return row + 1 >= room_.rows ? room_.columns - kept_ : room_.columns; }
    size_t blanks_before(const Piece &word) const { return at_row_start_ ? 0 : word.blanks; }

    void begin_row() {
        text_ += fmt::format("\n{:{}}", "", room_.indent);
        ++row_;
        at_ = room_.indent;
        at_row_start_ = true;
    }

    void put(const Piece &word, const std::string &text) {
        const size_t blanks = blanks_before(word);
        text_ += std::string(blanks, ' ') + painted(text, word.colour, colour_);
        at_ += blanks + columns_of(text);
        at_row_start_ = false;
    }

    Room room_;
    size_t kept_;
    bool colour_;
    bool at_row_start_ = true;
    size_t row_ = 0;
    size_t at_ = 0;
    std::string text_;
};

bool rows_add_all(Rows &rows, const std::vector<Piece> &pieces) {
    return std::all_of(pieces.begin(), pieces.end(), [&rows](const Piece &piece) { return rows.add(piece); });
}

} // namespace

std::string pieces_lay_out(const std::vector<Piece> &pieces, const Room &room, bool colour) {
    Rows whole(room, 0, colour);
    if (rows_add_all(whole, pieces))
        return whole.text();
    Rows marked(room, kLeftOut.size(), colour);
    rows_add_all(marked, pieces);
    return marked.text();
}

std::string pieces_join(const std::vector<Piece> &pieces, bool colour) {
    std::string line;
    for (const Piece &piece : pieces)
        line += std::string(line.empty() ? 0 : piece.blanks, ' ') + painted(piece.text, piece.colour, colour);
    return line;
}

} // namespace voicectl

// SPDX-License-Identifier: MIT
// A ladder as a Mermaid sequence diagram.
#include <algorithm>
#include <cctype>

#include <fmt/format.h>

#include "character.h"
#include "ladder_text.h"
#include "story.h"

namespace voicectl {

namespace {

bool is_plain(uint32_t code) {
    constexpr std::string_view kPlain = " ._-=/+()";
    return code >= 0x80 || std::isalnum(static_cast<int>(code)) != 0 ||
           kPlain.find(static_cast<char>(code)) != std::string_view::npos;
}

// A printable text in the diagram's language: other characters by their numbers, and likewise the first one of a lone "end",
// which would be a word of that language.
std::string mermaid_text(std::string_view text) {
    std::string shown;
    std::string_view before = " ";
    while (!text.empty()) {
        const character first = character_read(text.data(), text.size());
        const std::string_view one = text.substr(0, std::max<size_t>(first.bytes, 1));
        const auto is_letter = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; };
        bool is_end = text.size() >= 3 && !is_letter(before.back()) && (text.size() == 3 || !is_letter(text[3]));
        for (size_t i = 0; is_end && i < 3; ++i)
            is_end = std::tolower(static_cast<unsigned char>(text[i])) == "end"[i];
        if (is_plain(first.code) && !is_end)
            shown += one;
        else
            shown += fmt::format("#{};", first.code);
        before = one;
        text.remove_prefix(one.size());
    }
    return shown;
}

const char *arrow_of(LadderRow::Kind kind) {
    using Kind = LadderRow::Kind;
    switch (kind) {
    case Kind::event:
    case Kind::one_way_call:
        return "-)";
    case Kind::reply:
        return "-->>";
    case Kind::error:
    case Kind::closed:
        return "--x";
    default:
        return "->>";
    }
}

} // namespace

std::string ladder_mermaid(const LadderModel &ladder, size_t most_rows) {
    std::string text = "sequenceDiagram\n";
    for (size_t lane = 0; lane < ladder.lanes.size(); ++lane)
        text += fmt::format("    participant p{} as {}\n", lane, mermaid_text(ladder.lanes[lane].name));
    for (size_t i = 0; i < std::min(ladder.rows.size(), most_rows); ++i) {
        const LadderRow &row = ladder.rows[i];
        std::string said = row.name;
        if (!row.meaning.empty())
            said += " " + row.meaning;
        if (const uint64_t elapsed = ladder.elapsed_ns(row); elapsed > 0)
            said += " after " + duration_words(elapsed);
        if (row.from == row.to)
            text += fmt::format("    Note over p{}: {}\n", row.from,
                                mermaid_text(row.words.empty() ? said : fmt::format("{} {}", said, row.words)));
        else
            text += fmt::format("    p{}{}p{}: {}\n", row.from, arrow_of(row.kind), row.to, mermaid_text(said));
    }
    return text;
}

} // namespace voicectl

// SPDX-License-Identifier: MIT
#include "ladder_page.h"

#include <string_view>
#include <unordered_map>
#include <vector>

#include <fmt/format.h>

#include "ladder_page_parts.h"
#include "ladder_svg.h"
#include "ladder_text.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr size_t kTextColumns = 120; // of the ladder for browsers without scripts
constexpr size_t kTextRows = 200;

// A JSON text in which nothing is markup.
std::string script_text(std::string_view text) {
    std::string shown;
    for (const char c : json_string(text)) {
        if (c == '<' || c == '>' || c == '&')
            shown += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
        else
            shown += c;
    }
    return shown;
}

// Texts, each of them once.
class TextTable {
public:
    TextTable() { number_of(""); }

    size_t number_of(const std::string &text) {
        const auto [found, is_new] = numbers_.try_emplace(text, numbers_.size());
        if (is_new)
            list_ += fmt::format("{}{}", list_.empty() ? "" : ",", script_text(text));
        return found->second;
    }

    const std::string &list() const { return list_; }

private:
    std::unordered_map<std::string, size_t> numbers_{};
    std::string list_{};
};

std::string row_json(const LadderRow &row, uint64_t begin_ns, TextTable &texts) {
    std::string json = fmt::format("[{},{},{},{},{},{},{},{},{},[", (row.time_ns - begin_ns) / 1000,
                                   static_cast<int>(row.kind), row.from, row.to, row.via, texts.number_of(row.name),
                                   texts.number_of(row.meaning), texts.number_of(row.words), row.partner);
    const char *comma = "";
    for (const LadderParameter &one : row.parameters) {
        json += fmt::format("{}{},{},{}", comma, texts.number_of(one.name), texts.number_of(one.value),
                            texts.number_of(one.words));
        comma = ",";
    }
    return json + "]]";
}

// Replaces what stands between the parts of the page.
void append_part(std::string &page, std::string_view &rest, std::string_view mark, std::string_view text) {
    const size_t at = rest.find(mark);
    page += rest.substr(0, at);
    page += text;
    rest.remove_prefix(at + mark.size());
}

} // namespace

std::string ladder_json(const LadderModel &ladder) {
    const uint64_t begin_ns = ladder.rows.empty() ? 0 : ladder.rows.front().time_ns;
    TextTable texts;
    std::string rows;
    for (const LadderRow &row : ladder.rows)
        rows += (rows.empty() ? "" : ",\n") + row_json(row, begin_ns, texts);
    std::string lanes;
    for (const Lane &lane : ladder.lanes)
        lanes += fmt::format("{}[{},{},{}]", lanes.empty() ? "" : ",", script_text(lane.name),
                             static_cast<int>(lane.kind), lane.owner);
    return fmt::format(
        "{{\"title\":{},\"begin\":{},\"lost\":{},\"left_out\":{},\"lanes\":[{}],\n\"texts\":[{}],\n\"rows\":[{}]}}",
        script_text(ladder.title), begin_ns / 1'000'000, ladder.lost, ladder.left_out, lanes, texts.list(), rows);
}

std::string ladder_page(const LadderModel &ladder) {
    std::string page;
    std::string_view rest = kLadderPageHtml;
    append_part(page, rest, "%POLICY%", kLadderPagePolicy);
    append_part(page, rest, "%TITLE%", markup_text(ladder.title));
    append_part(page, rest, "%STYLE%", kLadderPageStyle);
    append_part(page, rest, "%TEXT%", markup_text(ladder_text(ladder, kTextColumns, kTextRows)));
    append_part(page, rest, "%DATA%", ladder_json(ladder));
    append_part(page, rest, "%SCRIPT%", kLadderPageScript);
    page += rest;
    return page;
}

} // namespace voicectl

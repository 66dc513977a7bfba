// SPDX-License-Identifier: MIT
// What must hold for each ladder and for what is drawn of it.
#include "pictures.h"

#include "ladder_activity.h"
#include "ladder_page.h"
#include "ladder_svg.h"
#include "ladder_text.h"
#include "markup.h"
#include "require.h"
#include "terminal.h"

#include <nlohmann/json.hpp>

namespace fuzz {

using voicectl::LadderModel;
using voicectl::LadderRow;
using voicectl::Lane;

namespace {

void text_check(const std::string &text) {
    constexpr size_t kMost = 4096 + 20; // what is left out is marked behind it
    require(text.size() <= kMost, "a text of a ladder is not too long");
    require(!steers_a_terminal(text) && text.find('\n') == std::string::npos, "a text of a ladder is one line");
}

void row_check(const LadderModel &ladder, size_t place) {
    using Kind = LadderRow::Kind;
    constexpr size_t kMostParameters = 302; // and that there are more, and what is broken
    const LadderRow &row = ladder.rows[place];
    const auto lanes = static_cast<int>(ladder.lanes.size()), rows = static_cast<int>(ladder.rows.size());
    require(row.from >= 0 && row.from < lanes && row.to >= 0 && row.to < lanes, "both ends of a row have a lane");
    require(row.via >= -1 && row.via < lanes, "the process of an endpoint has a lane");
    require(row.partner >= -1 && row.partner < rows, "an answer has a row");
    require(place == 0 || ladder.rows[place - 1].time_ns <= row.time_ns, "rows stand in the order of their times");
    const bool is_joined = row.kind != Kind::wait && row.partner >= 0;
    require(!is_joined || ladder.rows[static_cast<size_t>(row.partner)].partner == static_cast<int>(place),
            "who has an answer is the one that it answers");
    require(row.parameters.size() <= kMostParameters, "a row has so many parameters at most");
    for (const std::string *text : {&row.name, &row.meaning, &row.words})
        text_check(*text);
    for (const voicectl::LadderParameter &one : row.parameters)
        for (const std::string *text : {&one.name, &one.value, &one.words})
            text_check(*text);
}

// A call that is answered later keeps its callee busy until then, and its caller blocked when that is long.
void activity_check(const LadderModel &ladder) {
    const auto process_of = [&ladder](int lane) {
        const int owner = ladder.lanes[static_cast<size_t>(lane)].owner;
        return static_cast<size_t>(owner >= 0 ? owner : lane);
    };
    voicectl::LadderActivity activity(ladder);
    for (size_t i = 0; i < ladder.rows.size(); ++i) {
        const LadderRow &row = ladder.rows[i];
        activity.before(i);
        activity.after(i);
        const bool is_open = row.kind == LadderRow::Kind::call && row.partner > static_cast<int>(i);
        require(!is_open || activity.is_busy(process_of(row.to)), "who is called is busy until its answer");
        const bool is_long =
            is_open && ladder.rows[static_cast<size_t>(row.partner)].time_ns - row.time_ns >= voicectl::kBlockedNs;
        require(!is_long || activity.is_blocked(process_of(row.from)), "who waits for long is blocked");
    }
}

// With the C library's search: a loop of its own, in an instrumented program, would take most of a run's time.
size_t count_of(const std::string &text, char c) {
    size_t count = 0;
    for (size_t at = text.find(c); at != std::string::npos; at = text.find(c, at + 1))
        ++count;
    return count;
}

void text_picture_check(const LadderModel &ladder) {
    for (const size_t columns : {size_t{1}, size_t{120}}) {
        const std::string text = ladder_text(ladder, columns);
        require(!steers_a_terminal(text), "a ladder steers no terminal");
        const size_t lines = count_of(text, '\n');
        require(lines > ladder.rows.size() && lines <= 1 + 2 * ladder.rows.size(),
                "a row is a line, and perhaps one for the silence before it");
    }
}

void page_check(const LadderModel &ladder) {
    static const std::string empty = voicectl::ladder_page({});
    const std::string page = ladder_page(ladder);
    for (const char c : {'<', '>'})
        require(count_of(page, c) == count_of(empty, c), "a page has the markup of an empty one and no other");
    const std::string json = ladder_json(ladder);
    require(!steers_a_terminal(json), "a page's data is a text");
    require(page.find(json) != std::string::npos, "a page holds the ladder");
    require(json.find('&') == std::string::npos, "a page's data has no character by name");
    const nlohmann::json data = nlohmann::json::parse(json, nullptr, false);
    require(!data.is_discarded(), "a page's data is JSON");
    require(data["rows"].size() == ladder.rows.size() && data["lanes"].size() == ladder.lanes.size(),
            "a page has all rows and lanes");
    for (const nlohmann::json &row : data["rows"])
        require(row[5] < data["texts"].size() && row[9].size() % 3 == 0, "texts of a row stand in the table");
}

// Behind ": " stand texts: letters, some signs, and other characters by their numbers.
void mermaid_line_check(std::string_view line) {
    constexpr std::string_view kSigns = " ._-=/+()";
    while (!line.empty()) {
        const size_t end = line.find(';');
        if (line.front() == '#' && end != std::string_view::npos && end > 1 &&
            line.substr(1, end - 1).find_first_not_of("0123456789") == std::string_view::npos) {
            line.remove_prefix(end + 1);
            continue;
        }
        const auto c = static_cast<unsigned char>(line.front());
        require(c >= 0x80 || (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z') ||
                    kSigns.find(line.front()) != std::string_view::npos,
                "a text of a diagram is no word of its language");
        line.remove_prefix(1);
    }
}

void mermaid_check(const LadderModel &ladder) {
    const std::string text = ladder_mermaid(ladder);
    require(!steers_a_terminal(text), "a diagram is a text");
    require(count_of(text, '\n') == 1 + ladder.lanes.size() + ladder.rows.size(), "a lane and a row are a line each");
    std::string_view rest = text;
    for (size_t i = 0; i < 1 + ladder.lanes.size() + ladder.rows.size(); ++i) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(line.size() + 1);
        const bool is_lane = i > 0 && i <= ladder.lanes.size();
        const std::string_view mark = is_lane ? " as " : ": ";
        const size_t at = line.find(mark);
        require(i == 0 || at != std::string_view::npos, "a line of a diagram says what it is about");
        if (i > 0)
            mermaid_line_check(line.substr(at + mark.size()));
    }
}

} // namespace

void ladder_check(const LadderModel &ladder) {
    require(ladder.lanes.size() <= voicectl::kMostLadderLanes, "a ladder has so many lanes at most");
    for (const Lane &lane : ladder.lanes) {
        text_check(lane.name);
        const bool is_owned = lane.kind == Lane::Kind::endpoint;
        require(is_owned == (lane.owner >= 0), "an endpoint has a process");
        require(!is_owned || ladder.lanes.at(static_cast<size_t>(lane.owner)).kind == Lane::Kind::process,
                "an endpoint belongs to a process");
    }
    for (size_t i = 0; i < ladder.rows.size(); ++i)
        row_check(ladder, i);
    activity_check(ladder);
}

void pictures_check(const LadderModel &ladder) {
    text_picture_check(ladder);
    page_check(ladder);
    markup_check(ladder_svg(ladder));
    mermaid_check(ladder);
}

} // namespace fuzz

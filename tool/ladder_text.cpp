// SPDX-License-Identifier: MIT
#include "ladder_text.h"

#include <algorithm>
#include <vector>

#include <fmt/format.h>

#include "character.h"
#include "ladder_activity.h"
#include "story.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr size_t kTimeColumns = 11;
constexpr size_t kLeastLane = 14;
constexpr size_t kMostLane = 40;
constexpr size_t kNoteRoom = 30; // a text beside a lane wants so much, or stands on its left

// A line of columns, each of which holds a character; the second column of a wide one is empty.
class TextLine {
public:
    explicit TextLine(size_t columns) : cells_(columns, " ") {}

    void put(size_t column, const std::string &cell) {
        if (column < cells_.size())
            cells_[column] = cell;
    }

    // As much of a printable text as fits in front of `end`.
    void write(size_t column, size_t end, const std::string &text) {
        if (column >= std::min(end, cells_.size()))
            return;
        std::string_view rest = text;
        const std::string fitting = shortened(rest, std::min(end, cells_.size()) - column);
        rest = fitting;
        while (!rest.empty() && column < cells_.size()) {
            const character first = character_read(rest.data(), rest.size());
            const std::string one(rest.substr(0, std::max<size_t>(first.bytes, 1)));
            const size_t wide = columns_of(one);
            put(column, one);
            if (wide == 2)
                put(column + 1, "");
            column += wide;
            rest.remove_prefix(one.size());
        }
    }

    std::string text() const {
        std::string line;
        for (const std::string &cell : cells_)
            line += cell;
        line.erase(line.find_last_not_of(' ') + 1);
        return line + "\n";
    }

private:
    std::vector<std::string> cells_;
};

class TextLadder {
public:
    TextLadder(const LadderModel &ladder, size_t columns) : ladder_(ladder), activity_(ladder) {
        const size_t lanes = std::max<size_t>(ladder.lanes.size(), 1);
        const size_t room = columns > kTimeColumns ? (columns - kTimeColumns) / lanes : 0;
        lane_ = std::clamp(room, kLeastLane, kMostLane);
        columns_ = std::max(columns, kTimeColumns + lanes * lane_);
    }

    std::string draw(size_t most_rows) {
        std::string text = head();
        uint64_t before_ns = ladder_.rows.empty() ? 0 : ladder_.rows.front().time_ns;
        for (size_t i = 0; i < std::min(ladder_.rows.size(), most_rows); ++i) {
            const LadderRow &row = ladder_.rows[i];
            activity_.before(i);
            if (row.time_ns - before_ns > kGapNs)
                text += gap(row.time_ns - before_ns);
            text += line(row);
            activity_.after(i);
            before_ns = row.time_ns;
        }
        return text;
    }

private:
    size_t centre(int lane) const { return kTimeColumns + static_cast<size_t>(lane) * lane_ + lane_ / 2; }

    std::string head() const {
        TextLine line(columns_);
        line.write(2, kTimeColumns, "time (s)");
        for (size_t lane = 0; lane < ladder_.lanes.size(); ++lane) {
            const std::string name = shortened(ladder_.lanes[lane].name, lane_ - 1);
            line.write(centre(static_cast<int>(lane)) - columns_of(name) / 2, columns_, name);
        }
        return line.text();
    }

    void lifelines(TextLine &line, const char *shape) const {
        for (size_t lane = 0; lane < ladder_.lanes.size(); ++lane)
            line.put(centre(static_cast<int>(lane)), activity_.is_blocked(lane) ? "▒"
                                                     : activity_.is_busy(lane)  ? "┃"
                                                                                : shape);
    }

    std::string gap(uint64_t ns) const {
        TextLine line(columns_);
        const std::string words = "+" + duration_words(ns);
        line.write(kTimeColumns - 1 - std::min(words.size(), kTimeColumns - 1), kTimeColumns, words);
        lifelines(line, "┆");
        return line.text();
    }

    std::string line(const LadderRow &row) const {
        TextLine line(columns_);
        line.write(0, kTimeColumns,
                   fmt::format("{:10.4f}", static_cast<double>(row.time_ns - ladder_.rows.front().time_ns) / 1e9));
        lifelines(line, "│");
        row.from == row.to ? note(line, row) : arrow(line, row);
        return line.text();
    }

    // Something about a lane itself: beside it, where there is room.
    void note(TextLine &line, const LadderRow &row) const {
        using Kind = LadderRow::Kind;
        const bool is_sound = row.kind == Kind::sound_begins || row.kind == Kind::sound_ends;
        std::string text = fmt::format("{} {}", is_sound ? "♪" : "!", row.name);
        for (const std::string &more : {row.meaning, row.words})
            if (!more.empty())
                text += " " + more;
        const size_t at = centre(row.from);
        const bool goes_left = at + kNoteRoom > columns_ && at > kTimeColumns + kNoteRoom;
        if (goes_left) {
            const std::string fitting = shortened(text, at - kTimeColumns - 1);
            line.write(at - columns_of(fitting) - 1, at - 1, fitting);
        } else {
            line.write(at + 2, columns_, text);
        }
    }

    void arrow(TextLine &line, const LadderRow &row) const {
        using Kind = LadderRow::Kind;
        const bool rightwards = row.to > row.from;
        const size_t left = centre(std::min(row.from, row.to)), right = centre(std::max(row.from, row.to));
        const bool is_answer = row.kind == Kind::reply || row.kind == Kind::error;
        for (size_t column = left + 1; column < right; ++column)
            line.put(column, is_answer ? "╌" : "─");
        if (row.via >= 0 && row.via != row.from && row.via != row.to)
            line.put(centre(row.via), "┼");
        line.put(rightwards ? right - 1 : left + 1, rightwards ? ">" : "<");
        // The name stands between the plugin and its endpoint, or between the two processes.
        size_t first = left + 2, last = right - 2;
        if (row.via > std::min(row.from, row.to) && row.via < std::max(row.from, row.to)) {
            const size_t via = centre(row.via);
            via - left < right - via ? first = via + 1 : last = via - 1;
        }
        const std::string label = fmt::format(" {} ", label_of(row, last - first));
        const size_t taken = columns_of(label);
        line.write(first + (last + 1 - first - std::min(taken, last + 1 - first)) / 2, last + 1, label);
    }

    std::string label_of(const LadderRow &row, size_t room) const {
        using Kind = LadderRow::Kind;
        std::string name = row.kind == Kind::error                                             ? "✖ " + row.name
                           : row.kind == Kind::closed                                          ? "⊗ " + row.name
                           : activity_.blocks(static_cast<size_t>(&row - ladder_.rows.data())) ? "‖ " + row.name
                                                                                               : row.name;
        const uint64_t elapsed = ladder_.elapsed_ns(row);
        const std::string more = elapsed > 0 ? duration_words(elapsed) : row.meaning;
        const std::string both = more.empty() ? name : fmt::format("{} {}", name, more);
        return columns_of(both) + 2 <= room ? both : shortened(name, room > 2 ? room - 1 : 1);
    }

    const LadderModel &ladder_;
    LadderActivity activity_;
    size_t lane_ = kLeastLane;
    size_t columns_ = 0;
};

} // namespace

size_t ladder_text_columns(const LadderModel &ladder) {
    return kTimeColumns + ladder.lanes.size() * kLeastLane;
}

std::string ladder_text(const LadderModel &ladder, size_t columns, size_t most_rows) {
    return TextLadder(ladder, columns).draw(most_rows);
}

} // namespace voicectl

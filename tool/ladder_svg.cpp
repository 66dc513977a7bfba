// SPDX-License-Identifier: MIT
#include "ladder_svg.h"

#include <algorithm>

#include <fmt/format.h>

#include "ladder_activity.h"
#include "ladder_text.h"
#include "story.h"
#include "text.h"

namespace voicectl {

namespace {

// Pixels.
constexpr int kTimeWidth = 96, kLaneWidth = 130, kTextWidth = 440;
constexpr int kHead = 46, kRow = 30, kAxis = 19;                 // of a row: its height, and where its arrow is
constexpr size_t kLabel = 26, kLabelShort = 15, kMostWords = 66; // characters

// Shapes tell the kinds apart without colours, too: heads that are filled or open, lines that are whole or dashed.
constexpr const char *kStyle =
    "text{font:12px system-ui,'Liberation Sans','DejaVu Sans',sans-serif;fill:#1c2430}"
    ".l{stroke:#aeb8c5}.g{stroke-dasharray:2 3}.b{fill:#f5f7fa;stroke:#aeb8c5}"
    ".busy{fill:#f5f7fa;stroke:#4a3fa8}.held{fill:url(#hatch);stroke:#8a5300}"
    ".t{font-family:ui-monospace,'DejaVu Sans "
    "Mono',monospace}.m{fill:#5a6676}.h{paint-order:stroke;stroke:#fff;stroke-width:4px}"
    ".a{fill:none;stroke-width:1.8}.d{stroke-dasharray:6 4}"
    ".signal{stroke:#1f5fbf}.event{stroke:#0b7a4b}.call{stroke:#4a3fa8}.reply{stroke:#5a6676}.error{stroke:#b3261e}"
    ".wait{stroke:#8a5300}.sound{stroke:#7a2f8f}";

const char *class_of(LadderRow::Kind kind) {
    using Kind = LadderRow::Kind;
    switch (kind) {
    case Kind::signal:
        return "signal";
    case Kind::event:
        return "event";
    case Kind::call:
    case Kind::one_way_call:
        return "call";
    case Kind::reply:
    case Kind::connected:
        return "reply";
    case Kind::wait:
    case Kind::lost:
        return "wait";
    case Kind::sound_begins:
    case Kind::sound_ends:
        return "sound";
    default:
        return "error";
    }
}

class SvgLadder {
public:
    explicit SvgLadder(const LadderModel &ladder) : ladder_(ladder), activity_(ladder) {}

    std::string draw(size_t most_rows) {
        const size_t count = std::min(ladder_.rows.size(), most_rows);
        const int width = kTimeWidth + static_cast<int>(ladder_.lanes.size()) * kLaneWidth + kTextWidth;
        const int height = kHead + static_cast<int>(count) * kRow + kRow / 2;
        std::string svg = fmt::format(
            "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} {1}\">\n"
            "<title>{2}</title>\n<style>{3}</style>\n"
            "<defs><pattern id=\"hatch\" width=\"6\" height=\"6\" patternUnits=\"userSpaceOnUse\" "
            "patternTransform=\"rotate(45)\"><path d=\"M0 0V6\" stroke=\"#8a5300\" "
            "stroke-width=\"4\"/></pattern></defs>\n"
            "<rect width=\"{0}\" height=\"{1}\" fill=\"#fff\"/>\n",
            width, height, markup_text(ladder_.title), kStyle);
        svg += lanes();
        for (size_t i = 0; i < count; ++i) {
            activity_.before(i);
            svg += row(i);
            activity_.after(i);
        }
        return svg + "</svg>\n";
    }

private:
    static int centre(int lane) { return kTimeWidth + lane * kLaneWidth + kLaneWidth / 2; }

    std::string lanes() const {
        std::string svg;
        for (size_t lane = 0; lane < ladder_.lanes.size(); ++lane) {
            const bool is_endpoint = ladder_.lanes[lane].kind == Lane::Kind::endpoint;
            const int x = centre(static_cast<int>(lane));
            svg += fmt::format("<rect class=\"b\" x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" rx=\"{}\"/>"
                               "<text x=\"{}\" y=\"26\" text-anchor=\"middle\">{}</text>\n",
                               x - (is_endpoint ? 50 : 61), is_endpoint ? 10 : 7, is_endpoint ? 100 : 122,
                               is_endpoint ? 24 : 30, is_endpoint ? 12 : 4, x,
                               markup_text(shortened(ladder_.lanes[lane].name, is_endpoint ? 13 : 17)));
        }
        return svg;
    }

    std::string lifelines(int y, bool gap) const {
        std::string svg;
        for (size_t lane = 0; lane < ladder_.lanes.size(); ++lane) {
            const int x = centre(static_cast<int>(lane));
            svg += fmt::format("<path class=\"l{}\" d=\"M{} {}v{}\"/>", gap ? " g" : "", x, y, kRow);
            if (activity_.is_blocked(lane))
                svg +=
                    fmt::format("<rect class=\"held\" x=\"{}\" y=\"{}\" width=\"8\" height=\"{}\"/>", x - 4, y, kRow);
            else if (activity_.is_busy(lane))
                svg +=
                    fmt::format("<rect class=\"busy\" x=\"{}\" y=\"{}\" width=\"6\" height=\"{}\"/>", x - 3, y, kRow);
        }
        return svg;
    }

    std::string row(size_t i) const {
        const LadderRow &row = ladder_.rows[i];
        const int y = kHead + static_cast<int>(i) * kRow;
        const uint64_t silence = i > 0 ? row.time_ns - ladder_.rows[i - 1].time_ns : 0;
        std::string svg = "<g>" + lifelines(y, silence > kGapNs);
        if (silence > kGapNs)
            svg += fmt::format("<text class=\"m\" x=\"4\" y=\"{}\">+{}</text>", y + 9, duration_words(silence));
        svg += fmt::format("<text class=\"t\" x=\"{}\" y=\"{}\" text-anchor=\"end\">{:.4f}</text>", kTimeWidth - 10,
                           y + kAxis + 4, static_cast<double>(row.time_ns - ladder_.rows.front().time_ns) / 1e9);
        svg += row.from == row.to ? mark(row, y) : arrow(row, y);
        std::string words = row.name;
        for (const std::string &more : {row.meaning, row.words})
            if (!more.empty())
                words += "  " + more;
        const int x = kTimeWidth + static_cast<int>(ladder_.lanes.size()) * kLaneWidth + 8;
        return svg + fmt::format("<text x=\"{}\" y=\"{}\">{}</text></g>\n", x, y + kAxis + 4,
                                 markup_text(shortened(words, kMostWords)));
    }

    static std::string mark(const LadderRow &row, int y) {
        return fmt::format("<path class=\"a {}\" d=\"M{} {}h12v10h-12z\"/>", class_of(row.kind), centre(row.from) - 6,
                           y + kAxis - 5);
    }

    std::string arrow(const LadderRow &row, int y) const {
        using Kind = LadderRow::Kind;
        const int from = centre(row.from), to = centre(row.to), on = to > from ? 1 : -1, axis = y + kAxis;
        const bool is_answer = row.kind == Kind::reply || row.kind == Kind::error;
        const bool is_open = is_answer || row.kind == Kind::event || row.kind == Kind::one_way_call;
        const char *kind = class_of(row.kind);
        std::string svg = fmt::format("<path class=\"a {}{}\" d=\"M{} {}H{}\"/>", kind, is_answer ? " d" : "", from,
                                      axis, to - on * 2);
        svg += fmt::format("<path class=\"a {0}\"{1} d=\"M{2} {3}L{4} {5}L{2} {6}{7}\"/>", kind,
                           is_open ? "" : " stroke-linejoin=\"round\"", to - on * 10, axis - 5, to - on * 2, axis,
                           axis + 5, is_open ? "" : "z");
        if (row.via >= 0)
            svg += fmt::format("<circle class=\"a {}\" cx=\"{}\" cy=\"{}\" r=\"3\"/>", kind, centre(row.via), axis);
        int middle = (from + to) / 2;
        if (row.via >= 0)
            middle = (centre(row.via) + (row.via - std::min(row.from, row.to) >= std::max(row.from, row.to) - row.via
                                             ? std::min(from, to)
                                             : std::max(from, to))) /
                     2;
        std::string label = row.kind == Kind::error ? "✖ " + row.name : row.name;
        if (const uint64_t elapsed = ladder_.elapsed_ns(row); elapsed > 0)
            label += " " + duration_words(elapsed);
        const size_t room = std::abs(row.from - row.to) > 1 && row.via < 0 ? kLabel : kLabelShort;
        return svg + fmt::format("<text class=\"h\" x=\"{}\" y=\"{}\" text-anchor=\"middle\">{}</text>", middle,
                                 axis - 6, markup_text(shortened(label, room)));
    }

    const LadderModel &ladder_;
    LadderActivity activity_;
};

} // namespace

std::string markup_text(std::string_view text) {
    std::string shown;
    for (const char c : text) {
        switch (c) {
        case '&':
            shown += "&amp;";
            break;
        case '<':
            shown += "&lt;";
            break;
        case '>':
            shown += "&gt;";
            break;
        case '"':
            shown += "&quot;";
            break;
        case '\'':
            shown += "&#39;";
            break;
        default:
            shown += c;
        }
    }
    return shown;
}

std::string ladder_svg(const LadderModel &ladder, size_t most_rows) {
    return SvgLadder(ladder).draw(most_rows);
}

} // namespace voicectl

// SPDX-License-Identifier: MIT
// Counts as a table, as one line, as JSON.
#include "counts_text.h"

#include <algorithm>
#include <ctime>
#include <tuple>

#include <fmt/format.h>

#include "json.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr double kNsPerSecond = 1e9;
constexpr double kLongWait = 1; // seconds
constexpr const char *kRed = "\x1B[31m";
constexpr const char *kPlain = "\x1B[0m";

std::string time_of_day(uint64_t time_ns) {
    const auto seconds = static_cast<time_t>(time_ns / 1'000'000'000);
    tm local{};
    localtime_r(&seconds, &local);
    return fmt::format("{:02}:{:02}:{:02}", local.tm_hour, local.tm_min, local.tm_sec);
}

double seconds_of(uint64_t ns) {
    return static_cast<double>(ns) / kNsPerSecond;
}

double age_of(const Count &count, uint64_t now_ns) {
    return seconds_of(now_ns - std::min(now_ns, count.last_ns));
}

std::string or_dash(const std::string &text) {
    return text.empty() ? "-" : text;
}

std::string longest_words(const Count &count) {
    return count.waits == 0 ? "-" : fmt::format("{:.1f} s", seconds_of(count.longest_ns));
}

// Padded by what a terminal shows, not by bytes.
std::string padded(const std::string &text, size_t columns) {
    const std::string shown = shortened(text, columns);
    return shown + std::string(columns - std::min(columns, columns_of(shown)), ' ');
}

// What somebody who looks for a fault wants to see first.
auto weight(const RatedCount &row) {
    return std::make_tuple(row.count.waits != 0, row.count.longest_ns, row.rate, row.count.last_ns);
}

// The rows that there is room for, in their order.
std::vector<RatedCount> rows_choose(const CountsView &view, size_t most) {
    if (most == 0 || view.rows.size() <= most)
        return view.rows;
    std::vector<RatedCount> rows = view.rows;
    std::stable_sort(rows.begin(), rows.end(), [](const auto &a, const auto &b) { return weight(a) > weight(b); });
    rows.resize(most);
    std::sort(rows.begin(), rows.end(), [](const auto &a, const auto &b) {
        return std::tie(a.count.plugin, a.count.endpoint) < std::tie(b.count.plugin, b.count.endpoint);
    });
    return rows;
}

constexpr size_t kPluginColumns = 20;
constexpr size_t kEndpointColumns = 16;

std::string table_row(const RatedCount &row, const CountsView &view, const TableForm &form) {
    const Count &count = row.count;
    const std::string numbers = fmt::format(
        "{:>9.1f} {:>9} {:>6} {:>9} {:>7} {:>8}", row.rate, count.messages, count.waits, longest_words(count),
        count.errors, count.connected ? fmt::format("{:.0f} s", age_of(count, view.now_ns)) : std::string("gone"));
    const std::string line = fmt::format("{} {} {}", padded(or_dash(count.plugin), kPluginColumns),
                                         padded(or_dash(count.endpoint), kEndpointColumns), numbers);
    const std::string shown = form.columns == 0 ? line : shortened(line, form.columns);
    const bool bad = count.waits != 0 && seconds_of(count.longest_ns) >= kLongWait;
    return form.colour && bad ? kRed + shown + kPlain : shown;
}

std::string row_json(const RatedCount &row, uint64_t now_ns) {
    const Count &count = row.count;
    JsonMembers members;
    members.add_text("plugin", count.plugin);
    members.add_text("endpoint", count.endpoint);
    members.add("connected", count.connected ? "true" : "false");
    members.add_number("messages", static_cast<int64_t>(count.messages));
    members.add("messages_per_second", fmt::format("{:.3f}", row.rate));
    members.add_number("bytes", static_cast<int64_t>(count.bytes));
    members.add_number("errors", static_cast<int64_t>(count.errors));
    members.add_number("waits", static_cast<int64_t>(count.waits));
    members.add("longest_wait_s", fmt::format("{:.3f}", seconds_of(count.longest_ns)));
    members.add_number("answers", static_cast<int64_t>(count.answers));
    members.add("answers_took_s", fmt::format("{:.6f}", seconds_of(count.answer_ns)));
    members.add("age_s", fmt::format("{:.3f}", age_of(count, now_ns)));
    return members.object();
}

std::string head_line(const CountsView &view) {
    const Count &sum = view.sum.count;
    return fmt::format("{}  {:.1f} messages/s  plugins {}  waits {}  errors {}  lost {}{}", time_of_day(view.now_ns),
                       view.sum.rate, view.plugins, sum.waits, sum.errors, view.lost,
                       view.connected ? "" : "  not connected");
}

} // namespace

std::string counts_table(const CountsView &view, const TableForm &form) {
    constexpr size_t kHeadLines = 3; // and one to say what is left out
    const auto cut = [&form](const std::string &line) {
        return (form.columns == 0 ? line : shortened(line, form.columns)) + "\n";
    };
    const size_t most = form.lines == 0 ? 0 : std::max(form.lines, kHeadLines + 1) - kHeadLines;
    const std::vector<RatedCount> rows = rows_choose(view, most);
    std::string text = cut(head_line(view));
    text += cut(fmt::format("{:<{}} {:<{}} {:>9} {:>9} {:>6} {:>9} {:>7} {:>8}", "PLUGIN", kPluginColumns, "ENDPOINT",
                            kEndpointColumns, "MSG/S", "MESSAGES", "WAITS", "LONGEST", "ERRORS", "AGE"));
    for (const RatedCount &row : rows)
        text += table_row(row, view, form) + "\n";
    if (rows.size() < view.rows.size())
        text += cut(fmt::format("... {} more", view.rows.size() - rows.size()));
    return text;
}

std::string counts_line(const CountsView &view) {
    const Count &sum = view.sum.count;
    const auto busiest = std::max_element(view.rows.begin(), view.rows.end(),
                                          [](const auto &a, const auto &b) { return a.rate < b.rate; });
    std::string line = head_line(view);
    if (sum.waits != 0)
        line += fmt::format("  longest wait {}", longest_words(sum));
    if (busiest != view.rows.end() && busiest->rate > 0)
        line += fmt::format("  busiest {}{}{} {:.1f}", or_dash(busiest->count.plugin),
                            busiest->count.endpoint.empty() ? "" : ".", busiest->count.endpoint, busiest->rate);
    return line;
}

std::string counts_json(const CountsView &view) {
    JsonMembers rows;
    for (const RatedCount &row : view.rows)
        rows.add(row_json(row, view.now_ns));
    JsonMembers members;
    members.add_number("time_ns", static_cast<int64_t>(view.now_ns));
    members.add("connected", view.connected ? "true" : "false");
    members.add_number("plugins", static_cast<int64_t>(view.plugins));
    members.add_number("messages", static_cast<int64_t>(view.sum.count.messages));
    members.add("messages_per_second", fmt::format("{:.3f}", view.sum.rate));
    members.add_number("errors", static_cast<int64_t>(view.sum.count.errors));
    members.add_number("waits", static_cast<int64_t>(view.sum.count.waits));
    members.add_number("lost", static_cast<int64_t>(view.lost));
    members.add("rows", rows.list());
    return members.object();
}

} // namespace voicectl

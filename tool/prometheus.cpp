// SPDX-License-Identifier: MIT
// Counts in the text format that scrapers of Prometheus read.
#include "prometheus.h"

#include <functional>

#include <fmt/format.h>

namespace voicectl {

namespace {

// A label's value: names are printable, so that nothing else of them could end it.
std::string label_value(std::string_view text) {
    std::string shown;
    for (const char c : text) {
        if (c == '\\' || c == '"')
            shown += '\\';
        shown += c;
    }
    return shown;
}

std::string labels(const Count &count, std::string_view more = "") {
    return fmt::format("{{plugin=\"{}\",endpoint=\"{}\"{}}}", label_value(count.plugin), label_value(count.endpoint),
                       more);
}

std::string head(std::string_view name, std::string_view type, std::string_view help) {
    return fmt::format("# HELP {} {}\n# TYPE {} {}\n", name, help, name, type);
}

std::string single(std::string_view name, std::string_view type, std::string_view help, uint64_t value) {
    return head(name, type, help) + fmt::format("{} {}\n", name, value);
}

// One sample for each row.
struct Metric {
    const char *name;
    const char *type;
    const char *help;
    std::function<std::string(const Count &)> value;
};

std::string seconds_text(uint64_t ns) {
    return fmt::format("{:.9f}", static_cast<double>(ns) / 1e9);
}

std::string metric_text(const Metric &metric, const CountsView &view) {
    std::string text = head(metric.name, metric.type, metric.help);
    for (const RatedCount &row : view.rows)
        text += fmt::format("{}{} {}\n", metric.name, labels(row.count), metric.value(row.count));
    return text;
}

std::string answers_text(const CountsView &view) {
    constexpr std::string_view kName = "voice_answer_seconds";
    std::string text = head(kName, "histogram", "Time from a call to its answer.");
    for (const RatedCount &row : view.rows) {
        const Count &count = row.count;
        uint64_t sum = 0;
        for (size_t i = 0; i < kAnswerClasses.size(); ++i) {
            sum += count.answer_classes[i];
            text += fmt::format("{}_bucket{} {}\n", kName, labels(count, fmt::format(",le=\"{}\"", kAnswerClasses[i])),
                                sum);
        }
        text += fmt::format("{}_bucket{} {}\n", kName, labels(count, ",le=\"+Inf\""), count.answers);
        text += fmt::format("{}_sum{} {}\n", kName, labels(count), seconds_text(count.answer_ns));
        text += fmt::format("{}_count{} {}\n", kName, labels(count), count.answers);
    }
    return text;
}

const Metric kMetrics[] = {
    {"voice_connected", "gauge", "Whether the plugin is connected.",
     [](const Count &count) { return std::string(count.connected ? "1" : "0"); }},
    {"voice_messages_total", "counter", "Messages from and to it.",
     [](const Count &count) { return fmt::format("{}", count.messages); }},
    {"voice_message_bytes_total", "counter", "Bytes of these messages.",
     [](const Count &count) { return fmt::format("{}", count.bytes); }},
    {"voice_errors_total", "counter", "Answers with an error, refusals, records that cannot be read.",
     [](const Count &count) { return fmt::format("{}", count.errors); }},
    {"voice_waiting_calls", "gauge", "Calls without an answer so far.",
     [](const Count &count) { return fmt::format("{}", count.waits); }},
    {"voice_longest_wait_seconds", "gauge", "How long the oldest of these calls has waited.",
     [](const Count &count) { return seconds_text(count.longest_ns); }},
    {"voice_last_message_timestamp_seconds", "gauge", "When its last message passed, since 1970.",
     [](const Count &count) { return seconds_text(count.last_ns); }},
};

} // namespace

std::string prometheus_text(const CountsView &view) {
    std::string text = single("voice_up", "gauge", "Whether the bus of the voice application is being watched.",
                              view.connected ? 1 : 0);
    text += single("voice_plugins", "gauge", "Connections to the voice application.", view.plugins);
    text += single("voice_lost_copies_total", "counter",
                   "Messages that have passed uncounted: the watcher was too slow.", view.lost);
    for (const Metric &metric : kMetrics)
        text += metric_text(metric, view);
    return text + answers_text(view);
}

} // namespace voicectl

// SPDX-License-Identifier: MIT
// A line of the ladder. All traffic runs between a peer and the listener: peers and their endpoints stand on the left,
// the listener on the right, and the arrow tells the direction.
#include "show.h"

#include <ctime>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "libvoice_plugin.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr size_t kLaneWidth = 24;
constexpr size_t kShownBytes = 8; // a longer byte array shows as its size
constexpr uint64_t kNsPerMs = 1'000'000;
constexpr uint64_t kMsPerSecond = 1'000;
constexpr double kRoundMs = 10; // from here on without fractions

namespace colour_of {
constexpr const char *kTime = "\x1B[2m";
constexpr const char *kMeaning = "\x1B[1m";
constexpr const char *kSignal = "\x1B[36m";
constexpr const char *kEvent = "\x1B[33m";
constexpr const char *kGood = "\x1B[32m";
constexpr const char *kBad = "\x1B[31m";
constexpr const char *kEnd = "\x1B[0m";
} // namespace colour_of

class Painter {
public:
    explicit Painter(bool colour) : colour_(colour) {}
    std::string operator()(const char *colour, const std::string &text) const {
        return colour_ && !text.empty() ? colour + text + colour_of::kEnd : text;
    }

private:
    bool colour_;
};

std::string clock_time(uint64_t time_ns) {
    const uint64_t ms = time_ns / kNsPerMs;
    return fmt::format("{:%H:%M:%S}.{:03}", fmt::localtime(static_cast<std::time_t>(ms / kMsPerSecond)),
                       ms % kMsPerSecond);
}

std::string duration(uint64_t ns) {
    const double ms = static_cast<double>(ns) / kNsPerMs;
    if (ms >= static_cast<double>(kMsPerSecond))
        return fmt::format("{:.1f} s", ms / static_cast<double>(kMsPerSecond));
    return ms >= kRoundMs ? fmt::format("{:.0f} ms", ms) : fmt::format("{:.2f} ms", ms);
}

std::string value_text(const Value &value) {
    switch (value.type) {
    case Value::Type::none:
        return "no value";
    case Value::Type::text:
        return fmt::format("\"{}\"", printable(value.text));
    case Value::Type::number:
        return fmt::format("{}", value.number);
    case Value::Type::boolean:
        return value.number != 0 ? "true" : "false";
    case Value::Type::descriptor:
        return value.number < 0 ? "fd -" : fmt::format("fd {}", value.number);
    case Value::Type::bytes: {
        if (value.bytes.size() > kShownBytes)
            return fmt::format("{} bytes", value.bytes.size());
        return value.bytes.empty() ? "no bytes" : fmt::format("{:02X}", fmt::join(value.bytes, " "));
    }
    case Value::Type::list: {
        std::string text;
        for (const Value &item : value.list)
            text += (text.empty() ? "" : ", ") + value_text(item);
        return "[" + text + "]";
    }
    }
    return {};
}

std::string record_text(const Record &record, const Painter &paint) {
    std::string text;
    const auto append = [&text](const std::string &part) { text += (text.empty() ? "" : "  ") + part; };
    const char *colour = record.kind == RecordKind::signal ? colour_of::kSignal : colour_of::kEvent;
    // What a signal or event means stands before its name; a parameter's name says it.
    const auto append_named = [&](uint32_t id, const std::string &name, const std::string &value) {
        if (const std::string meaning(value.empty() ? short_meaning(id) : ""); !meaning.empty())
            append(paint(colour_of::kMeaning, meaning));
        append(paint(colour, name) + (value.empty() ? "" : " " + printable(value)));
    };
    if (record.identifier) {
        append_named(*record.identifier, libvoice_param_str(*record.identifier), "");
        if (record.line != 0)
            append(fmt::format("line {}", record.line));
        if (record.stops)
            append("stops");
    }
    for (const Item &item : record.items)
        append_named(item.id, item.name, item.value);
    if (!record.fault.empty())
        append(paint(colour_of::kBad, "broken: " + record.fault));
    return text;
}

// Arguments besides the record, which has a form of its own, and the names that the lane shows already.
std::string arguments_text(const Step &step) {
    std::string text;
    for (const Argument &argument : step.arguments) {
        const bool in_lane = (argument.name == "plugin_name" && argument.value.text == step.peer.plugin &&
                              step.function != "register_plugin") ||
                             (argument.name == "endpoint_name" && argument.value.text == step.endpoint);
        if (argument.name != step.record_argument && !in_lane)
            text += fmt::format("  {} {}", printable(argument.name), value_text(argument.value));
    }
    return text;
}

std::string outcome_text(const Step &step, const Painter &paint) {
    std::string text;
    for (const ErrorItem &error : step.errors)
        text += paint(colour_of::kBad, fmt::format("  error {} \"{}\" \"{}\"", error.code, printable(error.description),
                                                   printable(error.info)));
    if (step.record)
        return text + "  " + record_text(*step.record, paint);
    if (step.result.type == Value::Type::none)
        return step.errors.empty() ? "  no value" : text;
    const bool bad = !step.errors.empty() || (step.result.type == Value::Type::boolean && step.result.number == 0);
    return text + "  " + paint(bad ? colour_of::kBad : colour_of::kGood, value_text(step.result));
}

std::string call_name(const Step &step) {
    return step.function.empty() ? fmt::format("call {}", step.serial) : printable(step.function);
}

std::string what_happened(const Step &step, const Painter &paint) {
    const std::string since = step.elapsed_ns ? duration(*step.elapsed_ns) : "";
    switch (step.kind) {
    case Step::Kind::connected:
        return fmt::format("connected, process {}", step.peer.process_id);
    case Step::Kind::closed:
        return paint(colour_of::kBad, "closed") + (step.text.empty() ? "" : ": " + printable(step.text));
    case Step::Kind::call:
    case Step::Kind::one_way_call:
        return call_name(step) + (step.record ? "  " + record_text(*step.record, paint) : "") + arguments_text(step);
    case Step::Kind::reply:
        return call_name(step) + " answered" + outcome_text(step, paint) + (since.empty() ? "" : "  after " + since);
    case Step::Kind::refused:
        return paint(colour_of::kBad, "refused") + (step.text.empty() ? "" : ": " + printable(step.text));
    case Step::Kind::waiting:
        return paint(colour_of::kBad, call_name(step) + " is waited for") +
               (since.empty() ? "" : ", " + since + " so far");
    case Step::Kind::still_waiting:
        return paint(colour_of::kBad, call_name(step) + " has no answer yet") + ", " + since + " so far";
    case Step::Kind::lost:
        return paint(colour_of::kBad, fmt::format("{} records lost: this watcher was too slow", step.lost));
    }
    return {};
}

} // namespace

std::string ladder_line(const Step &step, bool colour) {
    const Painter paint(colour);
    const std::string time = paint(colour_of::kTime, clock_time(step.time_ns));
    if (step.kind == Step::Kind::lost)
        return time + "  " + what_happened(step, paint);
    std::string lane = printable(step.peer.name());
    if (!step.endpoint.empty())
        lane += " " + printable(step.endpoint);
    return fmt::format("{}  {:<{}} {} {}  {}", time, lane, kLaneWidth, step.towards_listener ? "-->" : "<--",
                       printable(step.listener), what_happened(step, paint));
}

} // namespace voicectl

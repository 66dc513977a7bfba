// SPDX-License-Identifier: MIT
// What a step tells, from left to right.
#include "story.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "identifier.h"
#include "libvoice_plugin.h"
#include "summary.h"
#include "text.h"
#include "words.h"

namespace voicectl {

namespace {

constexpr size_t kMostReason = 60; // a longer text from another process would hide the rest of its line
constexpr double kRoundMs = 10;    // from here on without fractions

namespace colour_of {
constexpr const char *kMeaning = "\x1B[1m";
constexpr const char *kSignal = "\x1B[36m";
constexpr const char *kEvent = "\x1B[33m";
constexpr const char *kGood = "\x1B[32m";
constexpr const char *kBad = "\x1B[31m";
} // namespace colour_of

std::string call_name(const Step &step) {
    return step.function.empty() ? fmt::format("call {}", step.serial) : printable(step.function);
}

// Sockets by their number at the sender, "29 31 -".
std::string sockets_words(const Value &list) {
    std::string text;
    for (const Value &item : list.list) {
        const std::string one = item.type != Value::Type::descriptor ? value_words(item)
                                : item.number < 0                    ? "-"
                                                                     : fmt::format("{}", item.number);
        text += fmt::format("{}{}", text.empty() ? "" : " ", one);
    }
    return text;
}

// What passed, in pieces from left to right.
class Story {
public:
    Story(const Step &step, bool full) : step_(step), full_(full) {}

    std::vector<Piece> tell() {
        switch (step_.kind) {
        case Step::Kind::connected:
            add(fmt::format("connected{}, process {}", step_.text.empty() ? "" : " before", step_.peer.process_id));
            break;
        case Step::Kind::closed:
        case Step::Kind::refused:
            tell_end(step_.kind == Step::Kind::closed ? "closed" : "refused");
            break;
        case Step::Kind::call:
        case Step::Kind::one_way_call:
            add(call_name(step_));
            if (step_.record)
                tell_record(*step_.record);
            tell_arguments();
            break;
        case Step::Kind::reply:
            add(call_name(step_) + " answered");
            tell_outcome();
            if (step_.elapsed_ns)
                add(fmt::format("after {}", duration_words(*step_.elapsed_ns)));
            break;
        case Step::Kind::waiting:
            add(call_name(step_) + " is waited for", colour_of::kBad);
            tell_so_far();
            break;
        case Step::Kind::still_waiting:
            add(call_name(step_) + " has no answer yet", colour_of::kBad);
            tell_so_far();
            break;
        case Step::Kind::lost:
            add(fmt::format("{} records lost: this watcher was too slow", step_.lost), colour_of::kBad);
            break;
        }
        return std::move(pieces_);
    }

private:
    void add(const std::string &text, const char *colour = nullptr, size_t blanks = 2) {
        if (!text.empty())
            pieces_.push_back({text, colour, blanks});
    }

    void tell_end(const char *how) {
        const std::string why = printable(step_.text);
        add(how, colour_of::kBad);
        if (!why.empty())
            add(fmt::format(": {}", full_ ? why : shortened(why, kMostReason)), nullptr, 0);
    }

    void tell_so_far() {
        if (step_.elapsed_ns)
            add(fmt::format(", {} so far", duration_words(*step_.elapsed_ns)), nullptr, 0);
    }

    void tell_record(const Record &record) {
        const char *colour = record.kind == RecordKind::signal ? colour_of::kSignal : colour_of::kEvent;
        if (record.identifier) {
            const char *name = libvoice_param_str(*record.identifier);
            add(std::string(short_meaning(*record.identifier)), colour_of::kMeaning);
            add(full_ ? name : voice::name_without_prefix(name), colour);
            if (record.line != 0)
                add(fmt::format("line {}", record.line));
            if (record.stops)
                add("stops");
        }
        if (record.stream)
            add(fmt::format("stream {}", *record.stream));
        if (full_)
            tell_all_items(record, colour);
        else
            for (const std::string &words : items_summary(record))
                add(words);
        if (!record.fault.empty())
            add(fmt::format("broken: {}", record.fault), colour_of::kBad);
    }

    void tell_all_items(const Record &record, const char *colour) {
        for (const Item &item : record.items) {
            // What a signal or event means stands before its name; a parameter's name says it.
            if (item.value.type == Value::Type::none)
                if (const std::string_view meaning = short_meaning(item.id); !meaning.empty())
                    add(std::string(meaning), colour_of::kMeaning);
            add(item.name, colour);
            if (const std::string words = item_words(item); !words.empty())
                add(words, nullptr, 1);
        }
    }

    // Arguments besides the record, which has a form of its own.
    void tell_arguments() {
        for (const Argument &argument : step_.arguments) {
            if (argument.name == step_.record_argument || stands_in_lane(argument))
                continue;
            if (full_)
                add(printable(argument.name) + " " + argument_words(argument));
            else if (const std::string words = argument_words(argument); !words.empty())
                add(label(argument.name) + " " + words);
        }
    }

    bool stands_in_lane(const Argument &argument) const {
        const std::string &text = argument.value.text;
        if (argument.name == "plugin_name")
            return text == step_.peer.plugin && !(full_ && step_.function == "register_plugin");
        if (argument.name == "endpoint_name")
            return text == step_.endpoint;
        return !full_ && argument.name == "endpoint_path" && text == step_.peer.plugin + ".EndPoint." + step_.endpoint;
    }

    static std::string label(const std::string &name) {
        constexpr std::pair<std::string_view, const char *> kLabels[] = {
            {"ep_line_id", "line"},    {"line_id", "line"},       {"ctx_id", "context"},   {"ep_id", "endpoint"},
            {"stream_id", "stream"},   {"filedesc", "sockets"},   {"codeclist", "codecs"}, {"endpoint_id", "endpoint"},
            {"endpoint_name", "name"}, {"endpoint_path", "path"},
        };
        const auto *found = std::find_if(std::begin(kLabels), std::end(kLabels),
                                         [&name](const auto &row) { return row.first == name; });
        return found != std::end(kLabels) ? found->second : printable(name);
    }

    std::string argument_words(const Argument &argument) const {
        const Value &value = argument.value;
        if (argument.name == "codeclist" && value.type == Value::Type::bytes)
            if (std::string codecs = codec_list_words(value.bytes); !codecs.empty())
                return codecs;
        if (argument.name == "type" && step_.function == "register_endpoint" && value.type == Value::Type::number)
            return endpoint_type_words(value.number);
        if (argument.name == "filedesc" && value.type == Value::Type::list && !full_)
            return sockets_words(value);
        return value_words(value);
    }

    void tell_outcome() {
        for (const ErrorItem &error : step_.errors)
            add(fmt::format("error {} \"{}\" \"{}\"", error.code, printable(error.description), printable(error.info)),
                colour_of::kBad);
        if (step_.record) {
            tell_record(*step_.record);
            return;
        }
        if (step_.result.type == Value::Type::none) {
            if (step_.errors.empty())
                add("no value");
            return;
        }
        const bool no = step_.result.type == Value::Type::boolean && step_.result.number == 0;
        add(value_words(step_.result), no || !step_.errors.empty() ? colour_of::kBad : colour_of::kGood);
    }

    const Step &step_;
    bool full_;
    std::vector<Piece> pieces_;
};

} // namespace

std::string duration_words(uint64_t ns) {
    const double ms = static_cast<double>(ns) / 1e6;
    if (ms >= 1000)
        return fmt::format("{:.1f} s", ms / 1000);
    return ms >= kRoundMs ? fmt::format("{:.0f} ms", ms) : fmt::format("{:.2f} ms", ms);
}

std::vector<Piece> story_tell(const Step &step, bool full) {
    return Story(step, full).tell();
}

} // namespace voicectl

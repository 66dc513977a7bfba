// SPDX-License-Identifier: MIT
#include "ladder_rows.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <fmt/format.h>

#include "character.h"
#include "hex.h"
#include "identifier.h"
#include "libvoice_plugin.h"
#include "story.h"
#include "summary.h"
#include "text.h"
#include "words.h"

namespace voicectl {

namespace {

constexpr size_t kMostTextBytes = 4096;
constexpr size_t kMostHexBytes = 512;
constexpr unsigned kMostMarks = 3;      // combining characters in a row
constexpr size_t kMostParameters = 300; // of a row: more than there are identifiers

using Kind = LadderRow::Kind;

// Characters that are drawn over the one before them.
bool is_combining(uint32_t code) {
    constexpr std::pair<uint32_t, uint32_t> kMarks[] = {
        {0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05C7}, {0x0610, 0x061A}, {0x064B, 0x065F},   {0x06D6, 0x06ED},
        {0x0730, 0x074A}, {0x0900, 0x0903}, {0x093A, 0x094F}, {0x0E31, 0x0E3A}, {0x0E47, 0x0E4E},   {0x0EB1, 0x0ECD},
        {0x0F71, 0x0FBC}, {0x135D, 0x135F}, {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF}, {0x20D0, 0x20FF},   {0x302A, 0x302F},
        {0x3099, 0x309A}, {0xA66F, 0xA67D}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}, {0x1D165, 0x1D1AD}, {0xE0100, 0xE01EF}};
    return std::any_of(std::begin(kMarks), std::end(kMarks),
                       [code](const auto &range) { return code >= range.first && code <= range.second; });
}

std::string joined(const std::vector<Piece> &pieces, size_t first) {
    std::string text;
    for (size_t i = first; i < pieces.size(); ++i)
        text += std::string(text.empty() ? 0 : pieces[i].blanks, ' ') + pieces[i].text;
    return text;
}

// A value as it travelled, whole where that is no more than some rows.
std::string value_literal(const Value &value) {
    if (value.type == Value::Type::bytes && !value.bytes.empty()) {
        const size_t shown = std::min(value.bytes.size(), kMostHexBytes);
        const std::string digits =
            hex_digits({value.bytes.begin(), value.bytes.begin() + static_cast<ptrdiff_t>(shown)});
        return shown == value.bytes.size() ? digits : fmt::format("{}... ({} bytes)", digits, value.bytes.size());
    }
    return value_words(value);
}

// The hexadecimal text that a data block travels as stays that text; other bytes become digits.
std::string item_literal(const Item &item) {
    const std::string_view bytes(reinterpret_cast<const char *>(item.bytes.data()), item.bytes.size());
    const std::string_view text = bytes.substr(0, bytes.find('\0'));
    if (item.value.type == Value::Type::bytes && !text.empty() && bytes.size() <= text.size() + 1 &&
        text.find_first_not_of("0123456789ABCDEF") == std::string_view::npos)
        return std::string(text);
    return item.value.type == Value::Type::none ? "" : value_literal(item.value);
}

std::string item_remark(const Item &item) {
    const std::string words = item_words(item), label = item_label(item);
    std::string remark =
        words == value_words(item.value) ? label : fmt::format("{}{}{}", label, label.empty() ? "" : " ", words);
    if (item_display(item))
        remark += ", checksum right";
    return remark;
}

void parameter_add(LadderRow &row, const std::string &name, const std::string &value, const std::string &words) {
    if (row.parameters.size() < kMostParameters)
        row.parameters.push_back({text_tame(name), text_tame(value), text_tame(words)});
    else if (row.parameters.size() == kMostParameters)
        row.parameters.push_back({"...", "", "further ones are left out"});
}

void record_add(LadderRow &row, const Record &record) {
    if (record.kind == RecordKind::signal || record.kind == RecordKind::event)
        parameter_add(row, "endpoint", fmt::format("{}", record.endpoint), "");
    if (record.identifier)
        parameter_add(row, "line", fmt::format("{}", record.line), record.stops ? "the signal stops" : "");
    if (record.stream)
        parameter_add(row, "stream", fmt::format("{}", *record.stream), "");
    for (const Item &item : record.items) {
        if (row.parameters.size() > kMostParameters)
            break;
        parameter_add(row, voice::name_without_prefix(item.name.c_str()), item_literal(item), item_remark(item));
    }
    if (!record.fault.empty())
        row.parameters.push_back({"broken", text_tame(record.fault), ""});
}

std::string argument_remark(const Step &step, const Argument &argument) {
    if (argument.name == "codeclist" && argument.value.type == Value::Type::bytes)
        return codec_list_words(argument.value.bytes);
    if (argument.name == "type" && step.function == "register_endpoint" && argument.value.type == Value::Type::number)
        return endpoint_type_words(argument.value.number);
    return "";
}

void call_fill(LadderRow &row, const Step &step) {
    const std::vector<Piece> pieces = story_tell(step, false);
    const bool named = step.record && step.record->identifier;
    if (named) {
        row.kind = step.record->kind == RecordKind::signal ? Kind::signal : Kind::event;
        row.name = voice::name_without_prefix(libvoice_param_str(*step.record->identifier));
        row.meaning = short_meaning(*step.record->identifier);
    } else {
        row.kind = step.kind == Step::Kind::call ? Kind::call : Kind::one_way_call;
        row.name = pieces.front().text;
    }
    row.words = joined(pieces, named ? 3 : 1);
    parameter_add(row, "object", printable(step.path), named ? printable(step.function) : "");
    for (const Argument &argument : step.arguments)
        if (argument.name != step.record_argument)
            parameter_add(row, printable(argument.name), value_literal(argument.value),
                          argument_remark(step, argument));
    if (step.record)
        record_add(row, *step.record);
}

void reply_fill(LadderRow &row, const Step &step) {
    const bool says_no = step.result.type == Value::Type::boolean && step.result.number == 0;
    row.kind = says_no || !step.errors.empty() ? Kind::error : Kind::reply;
    row.name = !step.errors.empty()                    ? fmt::format("error {}", step.errors.front().code)
               : step.record                           ? "parameters"
               : step.result.type == Value::Type::none ? "no value"
                                                       : value_words(step.result);
    row.words = step.function.empty() ? "answers a call that was not seen" : "answers " + printable(step.function);
    for (const ErrorItem &error : step.errors) {
        row.words += fmt::format("  {} {}", printable(error.description), printable(error.info));
        parameter_add(row, fmt::format("error {}", error.code), printable(error.description), printable(error.info));
    }
    if (step.record) {
        for (const std::string &words : items_summary(*step.record))
            row.words += "  " + words;
        record_add(row, *step.record);
    } else {
        parameter_add(row, "answer", value_literal(step.result), "");
    }
}

} // namespace

std::string text_tame(const std::string &printable_text) {
    std::string_view text = printable_text;
    std::string tame;
    unsigned marks = 0;
    while (!text.empty() && tame.size() < kMostTextBytes) {
        const character first = character_read(text.data(), text.size());
        const std::string_view bytes = text.substr(0, std::max<size_t>(first.bytes, 1));
        marks = is_combining(first.code) ? marks + 1 : 0;
        const bool is_character = (first.code & 0xFFFE) != 0xFFFE; // XML has no name for the others
        if (marks <= kMostMarks && is_character)
            tame += bytes;
        else
            for (const char byte : bytes)
                tame += fmt::format("\\x{:02X}", static_cast<uint8_t>(byte));
        text.remove_prefix(bytes.size());
    }
    return text.empty() ? tame : tame + "...";
}

LadderRow ladder_row(const Step &step) {
    LadderRow row{.time_ns = step.time_ns};
    if (step.is_call()) {
        call_fill(row, step);
    } else if (step.kind == Step::Kind::reply) {
        reply_fill(row, step);
    } else {
        const std::vector<Piece> pieces = story_tell(step, true);
        row.kind = step.kind == Step::Kind::connected ? Kind::connected
                   : step.kind == Step::Kind::waiting ? Kind::wait
                                                      : Kind::closed;
        row.name = pieces.front().text.substr(0, pieces.front().text.find_first_of(" ,"));
        row.words = joined(pieces, 0).substr(row.name.size());
        row.words.erase(0, row.words.find_first_not_of(" ,:"));
    }
    for (std::string *text : {&row.name, &row.meaning, &row.words})
        *text = text_tame(*text);
    return row;
}

} // namespace voicectl

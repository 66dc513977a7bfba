// SPDX-License-Identifier: MIT
#include "params_text.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include <fmt/format.h>

#include "json.h"
#include "libvoice_plugin.h"
#include "param_text.h"
#include "record.h"
#include "text.h"
#include "words.h"

namespace voicectl {

namespace {

// What an item means, behind its line.
std::string remark(const Item &item) {
    const std::string label = item_label(item), words = item_words(item);
    return words.empty() ? label : label.empty() ? words : fmt::format("{} {}", label, words);
}

std::string head_text(ParamsForm form, const Bytes &bytes) {
    std::string text;
    size_t at = 0;
    for (const HeadWord &word : head_of(form)) {
        const uint32_t number = word_at(bytes, at);
        at += kWordBytes;
        if (word.is_identifier) {
            const std::string_view meaning = short_meaning(number);
            text += fmt::format("{} = {}{}{}\n", word.name, identifier_text(number), meaning.empty() ? "" : "  # ",
                                meaning);
        } else {
            text += fmt::format("{} = {}\n", word.name, static_cast<int32_t>(number));
        }
    }
    return text;
}

// -------------------------------------------------------------------------------------------------------- Writing

// A line without its remark, taken apart at its first "=".
struct Line {
    std::string_view name;
    std::optional<std::string_view> value;
};

// A "#" within quotes belongs to the text.
std::string_view without_remark(std::string_view line) {
    bool in_text = false;
    for (size_t at = 0; at < line.size(); ++at) {
        if (in_text && line[at] == '\\')
            ++at;
        else if (line[at] == '"')
            in_text = !in_text;
        else if (line[at] == '#' && !in_text)
            return line.substr(0, at);
    }
    return line;
}

Line line_apart(std::string_view line) {
    line = trimmed(without_remark(line));
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos)
        return {line, std::nullopt};
    return {trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1))};
}

class Writer {
public:
    explicit Writer(ParamsForm form) : head_(head_of(form)), words_(head_.size(), 0) {}

    // Empty: the line is right.
    std::string take(std::string_view text) {
        const Line line = line_apart(text);
        if (line.name.empty())
            return line.value ? "there is no name in front of =" : "";
        for (size_t i = 0; i < head_.size(); ++i)
            if (line.name == head_[i].name)
                return head_take(i, line.value);
        const std::optional<uint32_t> id = identifier_in(line.name);
        if (!id)
            return fmt::format("{} is no identifier of the vocabulary", in_quotes(line.name));
        const std::optional<Bytes> value = line.value ? value_in(*line.value) : Bytes();
        if (!value)
            return fmt::format("{} is no value: a number, true, false, \"text\", [words] or {{hex digits}}",
                               in_quotes(*line.value));
        word_add(items_, *id);
        word_add(items_, static_cast<uint32_t>(value->size()));
        items_.insert(items_.end(), value->begin(), value->end());
        items_.resize((items_.size() + kWordBytes - 1) / kWordBytes * kWordBytes);
        return items_.size() > kMostParamsBytes ? fmt::format("a record has {} bytes at most", kMostParamsBytes) : "";
    }

    Bytes bytes(ParamsForm form) const {
        Bytes all;
        for (const uint32_t word : words_)
            word_add(all, word);
        if (form != ParamsForm::buffer)
            word_add(all, static_cast<uint32_t>(items_.size()));
        all.insert(all.end(), items_.begin(), items_.end());
        return all;
    }

private:
    std::string head_take(size_t at, std::optional<std::string_view> value) {
        if (!items_.empty())
            return fmt::format("{} belongs to the head, in front of the items", head_[at].name);
        std::optional<uint32_t> word;
        if (value)
            word = head_[at].is_identifier ? identifier_in(*value) : word_in(*value);
        if (!word)
            return fmt::format("{} wants a number{}, not {}", head_[at].name,
                               head_[at].is_identifier ? " or a name" : "", in_quotes(value.value_or("")));
        words_[at] = *word;
        return "";
    }

    std::span<const HeadWord> head_;
    std::vector<uint32_t> words_;
    Bytes items_;
};

} // namespace

ParamsRead params_read(ParamsForm form, ByteOrder order, Bytes bytes) {
    if (bytes.size() > kMostParamsBytes)
        return {.problem = fmt::format("{} bytes, a record has {} at most", bytes.size(), kMostParamsBytes)};
    if (order != byte_order_here())
        order_change(head_bytes(form), bytes, false);
    ParamsRead read;
    if (bytes.size() >= head_bytes(form))
        read.text = head_text(form, bytes);
    if (form == ParamsForm::buffer) {
        Bytes head;
        word_add(head, 0);
        word_add(head, static_cast<uint32_t>(bytes.size()));
        bytes.insert(bytes.begin(), head.begin(), head.end());
    }
    const Record record = record_read(kind_of(form), bytes);
    for (const Item &item : record.items) {
        const std::string name = identifier_text(item.id);
        const std::string said = remark(item);
        read.text += item.bytes.empty() ? name : fmt::format("{} = {}", name, value_text(item));
        read.text += said.empty() ? "\n" : fmt::format("  # {}\n", said);
    }
    read.json = record_json(record);
    read.problem = record.fault;
    if (read.problem.empty() && bytes.size() > std::max<size_t>(head_bytes(form), sizeof(libvoice_param_set_t))) {
        const size_t head = form == ParamsForm::buffer ? sizeof(libvoice_param_set_t) : head_bytes(form);
        const uint32_t length = word_at(bytes, head - kWordBytes);
        if (bytes.size() - head > length)
            read.problem = fmt::format("{} bytes behind the parameters", bytes.size() - head - length);
    }
    return read;
}

ParamsWritten params_write(ParamsForm form, ByteOrder order, std::string_view text) {
    Writer writer(form);
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = text.find('\n');
        const std::string problem = writer.take(text.substr(0, end));
        if (!problem.empty())
            return {.problem = fmt::format("line {}: {}", number, problem)};
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    ParamsWritten written{.bytes = writer.bytes(form)};
    if (order != byte_order_here())
        order_change(head_bytes(form), written.bytes, true);
    return written;
}

} // namespace voicectl

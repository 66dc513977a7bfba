// SPDX-License-Identifier: MIT
#include "param_text.h"

#include <fmt/format.h>

#include "byte_order.h"
#include "hex.h"
#include "identifier.h"
#include "libvoice_meanings.h"
#include "numbers.h"
#include "text.h"
#include "words.h"

namespace voicectl {

namespace {

std::string quoted(std::string_view text) {
    std::string shown;
    for (const char c : printable(text))
        shown += c == '"' ? "\\\"" : std::string(1, c);
    return fmt::format("\"{}\"", shown);
}

std::optional<std::string> unquoted(std::string_view text) {
    std::string plain;
    while (!text.empty()) {
        if (text[0] != '\\') {
            plain += text[0];
            text.remove_prefix(1);
            continue;
        }
        if (text.size() >= 2 && (text[1] == '\\' || text[1] == '"')) {
            plain += text[1];
            text.remove_prefix(2);
            continue;
        }
        const std::optional<Bytes> byte =
            text.size() >= 4 && text[1] == 'x' ? hex_read(text.substr(2, 2)) : std::nullopt;
        if (!byte || byte->size() != 1)
            return std::nullopt;
        plain += static_cast<char>(byte->front());
        text.remove_prefix(4);
    }
    return plain;
}

Bytes word_bytes(uint32_t word) {
    Bytes bytes;
    word_add(bytes, word);
    return bytes;
}

std::optional<Bytes> words_in(std::string_view list) {
    Bytes bytes;
    while (true) {
        const size_t comma = list.find(',');
        const std::optional<uint32_t> word = word_in(trimmed(list.substr(0, comma)));
        if (!word)
            return std::nullopt;
        word_add(bytes, *word);
        if (comma == std::string_view::npos)
            return bytes;
        list.remove_prefix(comma + 1);
    }
}

bool is_within(std::string_view text, char first, char last) {
    return text.size() >= 2 && text.front() == first && text.back() == last;
}

} // namespace

std::string identifier_text(uint32_t id) {
    const libvoice_meaning *row = libvoice_meaning_of(id);
    return row != nullptr ? voice::name_without_prefix(row->name) : fmt::format("{:#010x}", id);
}

std::optional<uint32_t> identifier_in(std::string_view text) {
    for (const libvoice_meaning &row : libvoice_meanings)
        if (text == row.name || text == voice::name_without_prefix(row.name))
            return row.number;
    uint32_t number = 0;
    return number_read_in_base(text, number) ? std::optional(number) : std::nullopt;
}

std::optional<uint32_t> word_in(std::string_view text) {
    uint32_t number = 0;
    int32_t below_zero = 0;
    if (number_read_in_base(text, number))
        return number;
    if (number_read(text, below_zero))
        return static_cast<uint32_t>(below_zero);
    return std::nullopt;
}

std::optional<Bytes> value_in(std::string_view text) {
    if (is_within(text, '{', '}'))
        return hex_read(text.substr(1, text.size() - 2));
    if (is_within(text, '[', ']'))
        return words_in(text.substr(1, text.size() - 2));
    if (text == "true" || text == "false")
        return word_bytes(text == "true" ? 1 : 0);
    if (is_within(text, '"', '"')) {
        const std::optional<std::string> plain = unquoted(text.substr(1, text.size() - 2));
        if (!plain)
            return std::nullopt;
        Bytes bytes(plain->begin(), plain->end());
        bytes.push_back(0);
        return bytes;
    }
    const std::optional<uint32_t> word = word_in(text);
    return word ? std::optional(word_bytes(*word)) : std::nullopt;
}

std::string value_text(const Item &item) {
    std::string text;
    if (item.value.type == Value::Type::text)
        text = quoted(item.value.text);
    else if (item.value.type == Value::Type::number || item.value.type == Value::Type::boolean ||
             item.value.type == Value::Type::list)
        text = value_words(item.value);
    return !text.empty() && value_in(text) == item.bytes ? text : fmt::format("{{{}}}", hex_digits(item.bytes));
}

std::string_view trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(" \t\r");
    return begin == std::string_view::npos ? "" : text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

} // namespace voicectl

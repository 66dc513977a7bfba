// SPDX-License-Identifier: MIT
// Text from other processes made fit for a terminal and for JSON.
#include "text.h"

#include "character.h"

#include <cstddef>
#include <cstdint>

#include <fmt/format.h>

namespace voicectl {

namespace {

// The character that the text begins with.
character first_character(std::string_view text) {
    return character_read(text.data(), text.size());
}

// Characters of the East Asian scripts and pictures take two columns.
bool is_wide(uint32_t code) {
    return (code >= 0x1100 && code <= 0x115F) || (code >= 0x2E80 && code <= 0xA4CF) ||
           (code >= 0xAC00 && code <= 0xD7A3) || (code >= 0xF900 && code <= 0xFAFF) ||
           (code >= 0xFE30 && code <= 0xFE6F) || (code >= 0xFF00 && code <= 0xFF60) ||
           (code >= 0xFFE0 && code <= 0xFFE6) || (code >= 0x1F300 && code <= 0x1FAFF) ||
           (code >= 0x20000 && code <= 0x3FFFD);
}

// How much of a printable text fits into so many columns, and how many it takes.
struct Fitting {
    size_t bytes = 0;
    size_t columns = 0;
};

Fitting fitting(std::string_view text, size_t columns) {
    Fitting fits;
    while (fits.bytes < text.size()) {
        const character first = first_character(text.substr(fits.bytes));
        const size_t wide = is_wide(first.code) ? 2 : 1;
        if (fits.columns + wide > columns)
            break;
        fits.columns += wide;
        fits.bytes += first.bytes == 0 ? 1 : first.bytes;
    }
    return fits;
}

constexpr std::string_view kLeftOut = "...";

// Beyond four hexadecimal digits JSON has two escapes, the halves of UTF-16.
std::string json_escape(uint32_t code) {
    if (code <= 0xFFFF)
        return fmt::format("\\u{:04x}", code);
    const uint32_t beyond = code - 0x10000;
    return fmt::format("\\u{:04x}\\u{:04x}", 0xD800 + (beyond >> 10), 0xDC00 + (beyond & 0x3FF));
}

} // namespace

size_t columns_of(std::string_view text) {
    return fitting(text, SIZE_MAX).columns;
}

std::string shortened(std::string_view text, size_t columns) {
    if (fitting(text, columns).bytes == text.size())
        return std::string(text);
    const size_t room = columns > kLeftOut.size() ? columns - kLeftOut.size() : 0;
    return std::string(text.substr(0, fitting(text, room).bytes)) + std::string(kLeftOut);
}

std::string in_quotes(std::string_view text) {
    constexpr size_t kMost = 40;
    return fmt::format("'{}'", shortened(printable(text), kMost));
}

std::string printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const character first = first_character(text);
        const size_t bytes = first.bytes == 0 ? 1 : first.bytes;
        if (first.bytes == 0 || character_steers_terminal(first.code)) {
            for (const char c : text.substr(0, bytes))
                shown += fmt::format("\\x{:02X}", static_cast<uint8_t>(c));
        } else if (first.code == '\\') {
            shown += "\\\\";
        } else {
            shown += text.substr(0, bytes);
        }
        text.remove_prefix(bytes);
    }
    return shown;
}

std::string json_string(std::string_view text) {
    std::string shown = "\"";
    while (!text.empty()) {
        const character first = first_character(text);
        const size_t bytes = first.bytes == 0 ? 1 : first.bytes;
        if (first.bytes == 0)
            shown += "\\ufffd";
        else if (first.code == '"' || first.code == '\\')
            shown += fmt::format("\\{}", text.front());
        else if (character_steers_terminal(first.code))
            shown += json_escape(first.code);
        else
            shown += text.substr(0, bytes);
        text.remove_prefix(bytes);
    }
    return shown + '"';
}

} // namespace voicectl

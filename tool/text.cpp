// SPDX-License-Identifier: MIT
// Text from other processes made fit for a terminal and for JSON.
#include "text.h"

#include <cstddef>
#include <cstdint>

#include <fmt/format.h>

namespace voicectl {

namespace {

struct Character {
    uint32_t code = 0;
    size_t bytes = 0; // 0: no UTF-8
};

// The character that the text begins with. Over-long forms, surrogates and numbers past the end of Unicode are no
// UTF-8.
Character first_character(std::string_view text) {
    const auto byte = [text](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t lead = byte(0);
    if (lead < 0x80)
        return {lead, 1};
    const size_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < bytes)
        return {};
    uint32_t code = lead & (0x7Fu >> bytes);
    for (size_t i = 1; i < bytes; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return {};
        code = code << 6 | (byte(i) & 0x3Fu);
    }
    constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < kSmallest[bytes] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        return {};
    return {code, bytes};
}

// Controls, and characters that change how others show: direction marks, joiners, line separators, byte order marks.
bool steers_terminal(uint32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0xAD || code == 0x061C || code == 0x180E ||
           (code >= 0x200B && code <= 0x200F) || (code >= 0x2028 && code <= 0x202E) ||
           (code >= 0x2060 && code <= 0x206F) || code == 0xFEFF || (code >= 0xFFF9 && code <= 0xFFFB) ||
           (code >= 0xE0000 && code <= 0xE007F);
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
        const Character character = first_character(text.substr(fits.bytes));
        const size_t wide = is_wide(character.code) ? 2 : 1;
        if (fits.columns + wide > columns)
            break;
        fits.columns += wide;
        fits.bytes += character.bytes == 0 ? 1 : character.bytes;
    }
    return fits;
}

constexpr std::string_view kLeftOut = "...";

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
        const Character character = first_character(text);
        const size_t bytes = character.bytes == 0 ? 1 : character.bytes;
        if (character.bytes == 0 || steers_terminal(character.code)) {
            for (const char c : text.substr(0, bytes))
                shown += fmt::format("\\x{:02X}", static_cast<uint8_t>(c));
        } else if (character.code == '\\') {
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
        const Character character = first_character(text);
        const size_t bytes = character.bytes == 0 ? 1 : character.bytes;
        if (character.bytes == 0)
            shown += "\\ufffd";
        else if (character.code == '"' || character.code == '\\')
            shown += fmt::format("\\{}", text.front());
        else if (character.code <= 0xFFFF && steers_terminal(character.code))
            shown += fmt::format("\\u{:04x}", character.code);
        else
            shown += text.substr(0, bytes);
        text.remove_prefix(bytes);
    }
    return shown + '"';
}

} // namespace voicectl

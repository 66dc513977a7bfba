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

} // namespace

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

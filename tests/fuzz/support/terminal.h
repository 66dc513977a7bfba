// SPDX-License-Identifier: MIT
// What no text that goes to a terminal may hold. Written a second time, from Unicode's tables and not from the hosts'
// code, so that both have to agree.
#ifndef FUZZ_TERMINAL_H
#define FUZZ_TERMINAL_H

#include <cstdint>
#include <string>
#include <string_view>

namespace fuzz {

// Category Cc but the line break; of category Cf and its relatives what moves, joins or hides the characters beside it.
inline bool character_steers(char32_t code) {
    struct Range {
        char32_t first, last;
    };
    constexpr Range kRanges[] = {
        {0, '\n' - 1},    {'\n' + 1, 0x1F}, {0x7F, 0x9F},     {0xAD, 0xAD},     {0x61C, 0x61C},   {0x180E, 0x180E},
        {0x200B, 0x200F}, {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F},
    };
    for (const Range &range : kRanges)
        if (code >= range.first && code <= range.last)
            return true;
    return false;
}

// Takes the first character of a text off. Anything but UTF-8 in its shortest form gives a number past the end of
// Unicode.
inline char32_t character_take(std::string_view &text) {
    constexpr char32_t kNone = 0xFFFFFFFF;
    const auto lead = static_cast<unsigned char>(text[0]);
    const size_t more = lead < 0x80 ? 0 : lead < 0xC0 ? 4 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : lead < 0xF8 ? 3 : 4;
    if (more == 4 || text.size() <= more)
        return kNone;
    char32_t code = more == 0 ? lead : lead & (0x3F >> more);
    for (size_t i = 1; i <= more; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if (next >> 6 != 2)
            return kNone;
        code = code * 64 + (next & 0x3F);
    }
    const size_t shortest = code < 0x80 ? 0 : code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    text.remove_prefix(more + 1);
    return more != shortest || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000) ? kNone : code;
}

// Whether a text is no UTF-8, or holds something that steers a terminal.
inline bool steers_a_terminal(std::string_view text) {
    while (!text.empty()) {
        const char32_t code = character_take(text);
        if (code > 0x10FFFF || character_steers(code))
            return true;
    }
    return false;
}

} // namespace fuzz

#endif

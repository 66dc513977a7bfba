// SPDX-License-Identifier: MIT
/**
 * @file character.h
 * Characters of UTF-8 texts from outside, for all that is shown on a terminal: by hosts and by tools.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

/** The character that a text begins with. */
struct character {
    uint32_t code;
    uint32_t bytes; // 0: none that is UTF-8
};

/** Reads one of a text that is not empty. Over-long forms, surrogates and numbers past the end of Unicode are no
 *  UTF-8. */
inline character character_read(const char *text, size_t length) {
    constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto byte = [text](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t lead = byte(0);
    if (lead < 0x80)
        return {lead, 1};
    const uint32_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || length < bytes)
        return {0, 0};
    uint32_t code = lead & (0x7Fu >> bytes);
    for (size_t i = 1; i < bytes; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return {0, 0};
        code = code << 6 | (byte(i) & 0x3Fu);
    }
    if (code < kSmallest[bytes] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        return {0, 0};
    return {code, bytes};
}

/** Control characters: C0, DEL and C1. */
inline bool character_is_control(uint32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}
/** Controls, and characters that change how others show: direction marks, joiners, line separators, byte order
 *  marks. */
inline bool character_steers_terminal(uint32_t code) {
    return character_is_control(code) || code == 0xAD || code == 0x061C || code == 0x180E ||
           (code >= 0x200B && code <= 0x200F) || (code >= 0x2028 && code <= 0x202E) ||
           (code >= 0x2060 && code <= 0x206F) || code == 0xFEFF || (code >= 0xFFF9 && code <= 0xFFFB) ||
           (code >= 0xE0000 && code <= 0xE007F);
}

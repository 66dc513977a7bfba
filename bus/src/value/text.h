// SPDX-License-Identifier: MIT
// Bytes inside a packet; not zero-terminated, and a zero byte may stand anywhere.
#ifndef KEX_TEXT_H
#define KEX_TEXT_H

#include <stdint.h>
#include <string.h>

namespace bus {

struct Text {
    const char *bytes;
    uint32_t length;
};

// For texts of our own, which are short.
inline Text text_of(const char *text) {
    return {text, static_cast<uint32_t>(strlen(text))};
}

// What a reader of zero-terminated texts sees of it.
inline Text text_as_read(Text text) {
    return {text.bytes, static_cast<uint32_t>(strnlen(text.bytes, text.length))};
}

// Bytes in front of the first such character, or of the end.
inline size_t text_length_until(const char *text, char end) {
    return static_cast<size_t>(strchrnul(text, end) - text);
}

inline bool text_equals(Text text, const char *bytes, size_t length) {
    return text.length == length && memcmp(text.bytes, bytes, length) == 0;
}

inline bool text_equals(Text text, const char *other) {
    return text_equals(text, other, strlen(other));
}

} // namespace bus

#endif

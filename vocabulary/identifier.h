// SPDX-License-Identifier: MIT
// What an identifier's number and name say by themselves, and the text of a value: for the library, hosts and tools.
//
//     31   30..28  27..24      23..16   15..8  7..0
//    +---+-------+-----------+---------+------+----------+
//    | 0 | class | value type| package | item | sub-item |
//    +---+-------+-----------+---------+------+----------+
#ifndef VOICE_IDENTIFIER_H
#define VOICE_IDENTIFIER_H

#include <limits.h> // INT_MAX
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>  // snprintf
#include <string.h> // memcpy

namespace voice {

// 3 to 7 are undefined.
enum class IdClass : uint8_t { property = 0, signal = 1, event = 2 };

// 5 to 15 are undefined.
enum class ValueType : uint8_t { none = 0, integer = 1, string = 2, hex = 3, boolean = 4 };

// Bit 31 does not change the class.
constexpr IdClass id_class(uint32_t id) {
    return static_cast<IdClass>(id >> 28 & 0x7u);
}
constexpr ValueType id_value_type(uint32_t id) {
    return static_cast<ValueType>(id >> 24 & 0xFu);
}
constexpr uint8_t id_item(uint32_t id) {
    return static_cast<uint8_t>(id >> 8);
}
constexpr uint8_t id_sub_item(uint32_t id) {
    return static_cast<uint8_t>(id);
}

constexpr bool name_begins(const char *name, const char *prefix) {
    for (; *prefix != '\0'; ++name, ++prefix)
        if (*name != *prefix)
            return false;
    return true;
}

// "al_of" of "LIBVOICE_EVENT_al_of": package and rest. A name of another form as it is.
constexpr const char *name_without_prefix(const char *name) {
    if (name_begins(name, "LIBVOICE_SIGNAL_"))
        return name + sizeof "LIBVOICE_SIGNAL_" - 1;
    if (name_begins(name, "LIBVOICE_EVENT_"))
        return name + sizeof "LIBVOICE_EVENT_" - 1;
    if (name_begins(name, "LIBVOICE_PARAM_"))
        return name + sizeof "LIBVOICE_PARAM_" - 1;
    return name;
}

// A value's first word. Bytes that a short value lacks count as zero, in memory order.
inline uint32_t first_word(const void *value, uint32_t length) {
    uint32_t word = 0;
    if (length != 0)
        memcpy(&word, value, length < sizeof word ? length : sizeof word);
    return word;
}

// The text of an item's value, by the value type of its identifier: an integer as a decimal, a text as it is up to its
// terminator or its item's end, a hex value's first word, "true" or "false"; nothing for a signal or event itself,
// "???" for an undefined type. Result and cutting as snprintf() has them.
inline int value_text(char *text, size_t size, uint32_t id, const void *value, uint32_t length) {
    const uint32_t word = first_word(value, length);
    const int most = length < INT_MAX ? static_cast<int>(length) : INT_MAX;
    const char *characters = length != 0 ? static_cast<const char *>(value) : "";
    switch (id_value_type(id)) {
    case ValueType::none:
        return snprintf(text, size, "%s", "");
    case ValueType::integer:
        return snprintf(text, size, "%d", static_cast<int32_t>(word));
    case ValueType::string:
        return snprintf(text, size, "%.*s", most, characters);
    case ValueType::hex:
        return snprintf(text, size, "0x%08x", word);
    case ValueType::boolean:
        return snprintf(text, size, "%s", word != 0 ? "true" : "false");
    }
    return snprintf(text, size, "%s", "???");
}

} // namespace voice

#endif

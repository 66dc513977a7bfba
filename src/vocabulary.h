// SPDX-License-Identifier: MIT
// The vocabulary of identifiers as a table: rows by number and by name, and the fields inside a number.
//
// Rows count from 0 in the order of vocabulary/ids.csv. Everything here is read-only data and arithmetic: no pointer to
// relocate, no heap, nothing to do at start-up.
#ifndef VOICE_VOCABULARY_H
#define VOICE_VOCABULARY_H

#include <stdint.h>

#include "libvoice_ids.h"

namespace voice {

// Bits 30..28 of an identifier; 3 to 7 are undefined.
enum class IdClass : uint8_t { property = 0, signal = 1, event = 2 };

// Bits 27..24 of an identifier; 5 to 15 are undefined.
enum class ValueType : uint8_t { none = 0, integer = 1, string = 2, hex = 3, boolean = 4 };

// What the value of a hex item holds.
enum class HexContent : uint8_t { none = 0, words = 1, bytes = 2 };

// Bit 31 does not change the class.
constexpr IdClass id_class(uint32_t id) {
    return static_cast<IdClass>(id >> 28 & 0x7u);
}
constexpr ValueType id_value_type(uint32_t id) {
    return static_cast<ValueType>(id >> 24 & 0xFu);
}
constexpr uint8_t id_package(uint32_t id) {
    return static_cast<uint8_t>(id >> 16);
}
constexpr uint8_t id_item(uint32_t id) {
    return static_cast<uint8_t>(id >> 8);
}
constexpr uint8_t id_sub_item(uint32_t id) {
    return static_cast<uint8_t>(id);
}

// The row of an identifier or of a name (compared exactly), -1 for none. Constant time.
int32_t vocabulary_row(uint32_t number);
int32_t vocabulary_row(const char *name);

// The fields of a row, 0 to LIBVOICE_IDS - 1.
uint32_t vocabulary_number(int32_t row);
const char *vocabulary_name(int32_t row);
const char *vocabulary_short(int32_t row); // one to three words: "off hook"
HexContent vocabulary_hex_content(int32_t row);

} // namespace voice

#endif

// SPDX-License-Identifier: MIT
// Look-ups in the vocabulary of identifiers, both ways, by perfect hashes that vocabulary/generate.py computes. Here is
// read-only data and arithmetic: no pointer to relocate, no heap, nothing to do at start-up.
#include <string.h> // memcpy, strnlen

#include "../vocabulary/identifier.h"
#include "libvoice_plugin.h"

namespace voice {
namespace {

constexpr uint32_t kNoIdentifier = 0xFFFFFFFFu;

#include "vocabulary_rows.inc"

constexpr uint32_t kRows = sizeof kNumbers / sizeof kNumbers[0];
constexpr uint32_t kPlacesOfNames = sizeof kRowsByName / sizeof kRowsByName[0];

// The upper bits of a key's hash choose a displacement, and the displacement moves the key to a place of its own. Each
// place has the one row that a key can have; whether it does have it is left to one comparison.
constexpr uint32_t place_of(uint32_t hash, const uint8_t (&displacements)[128]) {
    return (hash >> 17 & 0xFF) + displacements[hash >> 25];
}

// Numbers, and the offsets of names, stand in the order of the numbers' places.
constexpr uint32_t row_of(uint32_t number) {
    const uint32_t row = place_of(number * kNumberMultipliers[0], kNumberDisplacements);
    return row < kRows && kNumbers[row] == number ? row : kRows;
}

// Four characters as one word, on any processor the same.
constexpr uint32_t characters(const char *text) {
    uint32_t word = 0;
    if (__builtin_is_constant_evaluated()) {
        for (uint32_t i = 0; i < 4; ++i)
            word |= static_cast<uint32_t>(static_cast<uint8_t>(text[i])) << (8 * i);
        return word;
    }
    memcpy(&word, text, sizeof word);
    return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? word : __builtin_bswap32(word);
}

// Whether two texts of at least a word agree. A name that is unknown takes a third less than with memcmp().
constexpr bool are_same(const char *a, const char *b, size_t bytes) {
    if (__builtin_is_constant_evaluated())
        return __builtin_memcmp(a, b, bytes) == 0;
    uint64_t in_a = 0;
    uint64_t in_b = 0;
    size_t at = bytes - sizeof in_a; // from the end on, where names differ
    for (;;) {
        memcpy(&in_a, a + at, sizeof in_a);
        memcpy(&in_b, b + at, sizeof in_b);
        if (in_a != in_b)
            return false;
        if (at == 0)
            return true;
        at = at > sizeof in_a ? at - sizeof in_a : 0;
    }
}

// No two names agree in their length and their last twelve characters.
constexpr uint32_t row_of(const char *name, size_t length) {
    if (length < kShortestName || length > kLongestName)
        return kRows;
    const char *end = name + length;
    const uint32_t hash = (characters(end - 4) + static_cast<uint32_t>(length)) * kNameMultipliers[0] +
                          characters(end - 8) * kNameMultipliers[1] + characters(end - 12) * kNameMultipliers[2];
    const uint32_t place = place_of(hash, kNameDisplacements);
    if (place >= kPlacesOfNames)
        return kRows;
    const uint32_t row = kRowsByName[place];
    return are_same(kNames + kNameOffsets[row], name, length + 1) ? row : kRows;
}

// ------------------------------------------------------------------------------------------ Checks at compile time

// A name of any length that is let through is compared with any row inside the block of names.
constexpr bool names_can_be_compared() {
    for (const uint16_t offset : kNameOffsets)
        if (offset + kLongestName + 1 > sizeof kNames)
            return false;
    return true;
}
static_assert(names_can_be_compared());

// Each row is found under its own number and name, and all names are different rows: this also says that both are unique.
constexpr uint32_t rows_found() {
    uint32_t found = 0;
    for (uint32_t row = 0; row < kRows; ++row) {
        const char *name = kNames + kNameOffsets[row];
        found += row_of(kNumbers[row]) == row && row_of(name, __builtin_strlen(name)) == row;
    }
    return found;
}
static_assert(LIBVOICE_IDS == 265 && rows_found() == LIBVOICE_IDS);

// The kind stands in the name; class, value type, item and sub-item have to agree with it.
// Kept: one parameter has sub-item 0 like its event; only the value type tells them apart.
constexpr bool number_agrees_with_kind(uint32_t id, const char *name) {
    const bool sub_item_expected = id != LIBVOICE_PARAM_zil_dect_property_sw_version;
    if (id >> 31 != 0 || id_value_type(id) > ValueType::boolean)
        return false;
    if (name_begins(name, "LIBVOICE_SIGNAL_"))
        return id_class(id) == IdClass::signal && id_value_type(id) == ValueType::none && id_sub_item(id) == 0;
    if (name_begins(name, "LIBVOICE_EVENT_"))
        return id_class(id) == IdClass::event && id_value_type(id) == ValueType::none && id_sub_item(id) == 0;
    return name_begins(name, "LIBVOICE_PARAM_") && id_class(id) <= IdClass::event &&
           id_value_type(id) != ValueType::none && (id_sub_item(id) != 0) == sub_item_expected &&
           (id_item(id) == 0) == (id_class(id) == IdClass::property);
}
constexpr bool numbers_agree_with_kinds() {
    for (uint32_t row = 0; row < kRows; ++row)
        if (!number_agrees_with_kind(kNumbers[row], kNames + kNameOffsets[row]))
            return false;
    return true;
}
static_assert(numbers_agree_with_kinds());

} // namespace
} // namespace voice

const char *libvoice_param_str(uint32_t id) {
    const uint32_t row = voice::row_of(id);
    if (row < voice::kRows)
        return voice::kNames + voice::kNameOffsets[row];
    // Kept: "sig_nil" is a text for people only; libvoice_str_to_param() does not know it.
    return id == 0 ? "sig_nil" : "????";
}

uint32_t libvoice_str_to_param(const char *name) {
    if (!name)
        return voice::kNoIdentifier;
    // Reads no further than one character past the longest name, whatever the text's length.
    const uint32_t row = voice::row_of(name, strnlen(name, voice::kLongestName + 1));
    return row < voice::kRows ? voice::kNumbers[row] : voice::kNoIdentifier;
}

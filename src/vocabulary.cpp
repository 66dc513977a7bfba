// SPDX-License-Identifier: MIT
// Look-ups in the vocabulary of identifiers, both ways, by perfect hashes that vocabulary/generate.py computes.
#include "vocabulary.h"

#include "../vocabulary/identifier.h"
#include "libvoice_ids.h"

namespace voice {
namespace {

constexpr uint16_t kEmpty = 0xFFFF;

// Some bits of a key's hash choose a displacement, and the displacement moves the key to a slot of its own. A slot
// holds the one row that a key can have; whether it does have it is left to one comparison.
struct PerfectHash {
    uint8_t displacement[128];
    uint16_t slot[512];

    constexpr uint16_t candidate(uint32_t hash) const {
        const uint32_t moved = (hash >> 7) + displacement[hash % 128] * (hash >> 20 | 1u);
        return slot[moved % 512];
    }
};

#include "vocabulary_rows.inc" // kNumbers, kNames, kNameOffsets, kLongestName, kByNumber, kByName

constexpr uint32_t finish(uint32_t hash) {
    return hash ^ hash >> 15;
}

constexpr int32_t row_of(uint32_t number) {
    const uint16_t row = kByNumber.candidate(finish(number * 0x9E3779B1u));
    return row != kEmpty && kNumbers[row] == number ? row : -1;
}

// Reads no further than one character past the longest name, whatever the text's length.
constexpr int32_t row_of(const char *name) {
    uint32_t hash = 0x811C9DC5u;
    uint32_t length = 0;
    for (; name[length] != '\0'; ++length) {
        if (length == kLongestName)
            return -1;
        hash = (hash ^ static_cast<uint8_t>(name[length])) * 0x01000193u;
    }
    const uint16_t row = kByName.candidate(finish(hash));
    if (row == kEmpty)
        return -1;
    const char *known = kNames + kNameOffsets[row];
    for (uint32_t i = 0; i <= length; ++i)
        if (known[i] != name[i])
            return -1;
    return row;
}

// ------------------------------------------------------------------------------------------ Checks at compile time

constexpr int32_t kRows = LIBVOICE_IDS;
static_assert(kRows == 265 && sizeof(kNumbers) / sizeof(kNumbers[0]) == kRows);

// Each row found under its own number and name: this also says that both are unique.
constexpr bool every_row_found() {
    for (int32_t row = 0; row < kRows; ++row)
        if (row_of(kNumbers[row]) != row || row_of(kNames + kNameOffsets[row]) != row)
            return false;
    return true;
}
static_assert(every_row_found());

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
    for (int32_t row = 0; row < kRows; ++row)
        if (!number_agrees_with_kind(kNumbers[row], kNames + kNameOffsets[row]))
            return false;
    return true;
}
static_assert(numbers_agree_with_kinds());

} // namespace

int32_t vocabulary_row(uint32_t number) {
    return row_of(number);
}

int32_t vocabulary_row(const char *name) {
    return name ? row_of(name) : -1;
}

uint32_t vocabulary_number(int32_t row) {
    return kNumbers[row];
}

const char *vocabulary_name(int32_t row) {
    return kNames + kNameOffsets[row];
}

} // namespace voice

// SPDX-License-Identifier: MIT
// Identifiers and values of a parameter buffer as somebody writes them. What is read from a text that was made here is the
// same, byte by byte.
#ifndef VOICECTL_PARAM_TEXT_H
#define VOICECTL_PARAM_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "record.h"
#include "value.h"

namespace voicectl {

// The name without its prefix, or the number of what the vocabulary does not hold: "al_ri_freq", "0x7a7a0001".
std::string identifier_text(uint32_t id);
// Of a name, with or without its prefix, or of a number. Nothing: it is neither.
std::optional<uint32_t> identifier_in(std::string_view text);

// A number of 32 bits, with or without a sign. Nothing: it is none.
std::optional<uint32_t> word_in(std::string_view text);

// An item's value by its type where that gives the same bytes again, else its bytes: 25, "DE", [1000, 4000], {00ff}.
std::string value_text(const Item &item);
// The bytes of a value by how it is written. Nothing: it is no value.
std::optional<Bytes> value_in(std::string_view text);

// Without the blanks at both ends.
std::string_view trimmed(std::string_view text);

} // namespace voicectl

#endif

// SPDX-License-Identifier: MIT
// Bytes as hexadecimal text.
#ifndef VOICECTL_HEX_H
#define VOICECTL_HEX_H

#include <optional>
#include <string>
#include <string_view>

#include "value.h"

namespace voicectl {

// "00ff", "00FF".
std::string hex_digits(const Bytes &bytes);
std::string hex_digits_upper(const Bytes &bytes);

// Digits of either case, blanks and line breaks between them left out. Nothing: no digits, another character, or half a
// byte.
std::optional<Bytes> hex_read(std::string_view digits);

} // namespace voicectl

#endif

// SPDX-License-Identifier: MIT
// Numbers in texts.
#ifndef VOICECTL_NUMBERS_H
#define VOICECTL_NUMBERS_H

#include <charconv>
#include <string>
#include <system_error>

namespace voicectl {

// Whether all of a text is a number of that type.
template <typename Number>
bool number_read(const std::string &text, Number &number) {
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

} // namespace voicectl

#endif

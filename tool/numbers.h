// SPDX-License-Identifier: MIT
// Numbers in texts.
#ifndef VOICECTL_NUMBERS_H
#define VOICECTL_NUMBERS_H

#include <charconv>
#include <concepts>
#include <string_view>
#include <system_error>

namespace voicectl {

// Whether all of a text is a number of that type.
template <typename Number>
bool number_read(std::string_view text, Number &number) {
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

// The same in either base: "0x20090400", or in decimal.
template <std::integral Number>
bool number_read_in_base(std::string_view text, Number &number) {
    if (!text.starts_with("0x") && !text.starts_with("0X"))
        return number_read(text, number);
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + 2, end, number, 16);
    return error == std::errc() && stop == end;
}

} // namespace voicectl

#endif

// SPDX-License-Identifier: MIT
#include "hex.h"

#include <cctype>

#include <fmt/format.h>

namespace voicectl {

std::string hex_digits(const Bytes &bytes) {
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

std::string hex_digits_upper(const Bytes &bytes) {
    return fmt::format("{:02X}", fmt::join(bytes, ""));
}

std::optional<Bytes> hex_read(std::string_view digits) {
    Bytes bytes;
    size_t count = 0;
    for (const char digit : digits) {
        if (std::isspace(static_cast<unsigned char>(digit)) != 0)
            continue;
        if (std::isxdigit(static_cast<unsigned char>(digit)) == 0)
            return std::nullopt;
        const int value = digit <= '9' ? digit - '0' : (digit | 0x20) - 'a' + 10;
        if (count++ % 2 == 0)
            bytes.push_back(static_cast<uint8_t>(value << 4));
        else
            bytes.back() |= static_cast<uint8_t>(value);
    }
    if (count == 0 || count % 2 != 0)
        return std::nullopt;
    return bytes;
}

} // namespace voicectl

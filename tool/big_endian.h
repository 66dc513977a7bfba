// SPDX-License-Identifier: MIT
// Numbers whose order is not that of the machine.
#ifndef VOICECTL_BIG_ENDIAN_H
#define VOICECTL_BIG_ENDIAN_H

#include <cstdint>
#include <string>
#include <string_view>

namespace voicectl {

// Appends the lower bytes of a number, the highest first.
inline void put_big(std::string &to, uint32_t number, unsigned bytes) {
    while (bytes-- > 0)
        to.push_back(static_cast<char>(number >> 8 * bytes));
}

// The number that so many bytes are, the highest first; of more than four the last ones count.
inline uint32_t big_number(std::string_view bytes) {
    uint32_t number = 0;
    for (const char byte : bytes)
        number = number << 8 | static_cast<uint8_t>(byte);
    return number;
}

} // namespace voicectl

#endif

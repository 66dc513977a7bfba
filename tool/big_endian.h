// SPDX-License-Identifier: MIT
// Numbers whose order is not that of the machine.
#ifndef VOICECTL_BIG_ENDIAN_H
#define VOICECTL_BIG_ENDIAN_H

#include <cstdint>
#include <string>

namespace voicectl {

// Appends the lower bytes of a number, the highest first.
inline void put_big(std::string &to, uint32_t number, unsigned bytes) {
    while (bytes-- > 0)
        to.push_back(static_cast<char>(number >> 8 * bytes));
}

} // namespace voicectl

#endif

// SPDX-License-Identifier: MIT
// What a telephone shows of a caller, or of messages that wait: data blocks of ETSI EN 300 659-3 as they cross the bus.
#ifndef VOICECTL_CALLER_DISPLAY_H
#define VOICECTL_CALLER_DISPLAY_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace voicectl {

// Texts are as they came: whoever shows them makes them fit. Empty or without a value: not in the block.
struct CallerDisplay {
    enum class Kind { call, messages };
    Kind kind = Kind::call;
    std::string time{}; // MMDDhhmm
    std::string number{};
    std::string name{};
    std::string called{};
    char no_number = 0; // why there is none: 'O' unavailable, 'P' withheld
    char no_name = 0;
    uint8_t call_type = 0;
    std::optional<bool> lamp{};
    uint8_t messages = 0;
};

// Reads the hexadecimal text of a block. Empty: not a whole block of a known kind with a right checksum.
std::optional<CallerDisplay> caller_display_read(std::string_view text);

} // namespace voicectl

#endif

// SPDX-License-Identifier: MIT
// One value of a call, of a reply or of a record's item.
#ifndef VOICECTL_VALUE_H
#define VOICECTL_VALUE_H

#include <cstdint>
#include <string>
#include <vector>

namespace voicectl {

using Bytes = std::vector<uint8_t>;

// Text is as it came: whoever shows it makes it fit for a terminal or for JSON.
struct Value {
    enum class Type { none, text, number, boolean, descriptor, bytes, list };
    Type type = Type::none;
    std::string text{};
    int64_t number = 0; // numbers, booleans, descriptors
    Bytes bytes{};
    std::vector<Value> list{};
};

} // namespace voicectl

#endif

// SPDX-License-Identifier: MIT
// The records of messages that stand in captures.
#ifndef FUZZ_CAPTURED_MESSAGES_H
#define FUZZ_CAPTURED_MESSAGES_H

#include "input.h"

#include <string>

namespace fuzz {

// Numbers of either byte order.
class NumberWriter {
public:
    explicit NumberWriter(bool is_big) : is_big_(is_big) {}

    NumberWriter &byte(uint8_t value) { return number(value, 1); }
    NumberWriter &half(uint16_t value) { return number(value, 2); }
    NumberWriter &word(uint32_t value) { return number(value, 4); }
    NumberWriter &raw(const std::string &value) {
        bytes += value;
        return *this;
    }
    // Its length and its bytes.
    NumberWriter &text(const std::string &value) { return word(static_cast<uint32_t>(value.size())).raw(value); }
    NumberWriter &pad() {
        bytes.append((4 - bytes.size() % 4) % 4, '\0');
        return *this;
    }

    std::string bytes;

private:
    NumberWriter &number(uint32_t value, unsigned size) {
        for (unsigned i = 0; i < size; ++i)
            bytes += static_cast<char>(value >> 8 * (is_big_ ? size - 1 - i : i));
        return *this;
    }
    bool is_big_;
};

// A record as voicectl captures it, of a message of either order or of an event of the bus; its sizes may be wrong.
std::string captured_message(Input &in);

} // namespace fuzz

#endif

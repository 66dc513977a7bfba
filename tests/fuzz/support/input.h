// SPDX-License-Identifier: MIT
// The bytes of one run, handed out as what a target asks for. When they are used up, all that is asked for is zero or
// empty, so that every input means something.
#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

#include <cstdint>
#include <cstring>
#include <string>

namespace fuzz {

class Input {
public:
    Input(const uint8_t *bytes, size_t size) : at_(bytes), left_(size) {}

    bool is_empty() const { return left_ == 0; }
    size_t left() const { return left_; }

    uint8_t byte() { return number<uint8_t>(); }
    // In the byte order of this machine, as on the bus.
    uint16_t half() { return number<uint16_t>(); }
    uint32_t word() { return number<uint32_t>(); }
    // 0 to count - 1; count is 1 to 256.
    uint32_t below(uint32_t count) { return byte() % count; }
    bool flag() { return (byte() & 1) != 0; }

    // Its length goes before: a byte, or 255 and a half word.
    std::string text() {
        const size_t length = byte();
        return bytes(length == 255 ? half() : length);
    }
    // So many bytes, or what is left.
    std::string bytes(size_t most) {
        const size_t length = most < left_ ? most : left_;
        std::string taken(reinterpret_cast<const char *>(at_), length);
        skip(length);
        return taken;
    }
    std::string rest() { return bytes(left_); }

private:
    template <typename Number>
    Number number() {
        Number value = 0;
        const size_t length = left_ < sizeof value ? left_ : sizeof value;
        if (length != 0)
            memcpy(&value, at_, length);
        skip(length);
        return value;
    }
    void skip(size_t length) {
        at_ += length;
        left_ -= length;
    }

    const uint8_t *at_;
    size_t left_;
};

} // namespace fuzz

#endif

// SPDX-License-Identifier: MIT
// Numbers, texts and values of a message of the bus, in either byte order.
#ifndef VOICECTL_MESSAGE_READER_H
#define VOICECTL_MESSAGE_READER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "byte_order.h"
#include "value.h"

namespace voicectl {

// After the first thing that is not there it gives nothing but zeros and empty texts.
class MessageReader {
public:
    MessageReader(std::string_view bytes, ByteOrder order) : bytes_(bytes), order_(order) {}

    std::string_view take(size_t size);
    uint8_t byte();
    uint16_t half();
    uint32_t word();
    std::string_view text(); // its length and its bytes
    Value value() { return nested_value(0); }

    size_t left() const { return bytes_.size(); }
    bool is_good() const { return fault_.empty(); }
    // What is wrong, a printable sentence; empty: nothing yet.
    const std::string &fault() const { return fault_; }

private:
    uint32_t number(size_t size);
    Value nested_value(unsigned depth);
    Value list(unsigned depth);
    void fail(const std::string &fault);

    std::string_view bytes_; // that are left
    ByteOrder order_;
    std::string fault_{};
};

} // namespace voicectl

#endif

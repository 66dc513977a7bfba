// SPDX-License-Identifier: MIT
// What the tests of bus functions share.
#ifndef HANDLER_TEST_H
#define HANDLER_TEST_H

#include "voice_test.h"

namespace voice_test {

// Records that are shorter than their head, or announce more than arrived.
struct BrokenRecord : Named {
    Value (*make)(size_t head);
};

inline const BrokenRecord kBrokenRecords[] = {
    {"WithoutAValue", [](size_t) { return Value::without_value(VARIANT_BYTES); }},
    {"Empty", [](size_t) { return Value::bytes(""); }},
    {"OneByte", [](size_t) { return Value::bytes(std::string(1, '\0')); }},
    {"OneByteShortOfItsHead", [](size_t head) { return Value::bytes(std::string(head - 1, '\0')); }},
    {"OneByteTooLong", [](size_t head) { return Value::bytes(std::string(head - 4, '\0') + word(1)); }},
    {"OneByteCutOff",
     [](size_t head) { return Value::bytes(std::string(head - 4, '\0') + word(12) + std::string(11, 'x')); }},
    {"LargestLength",
     [](size_t head) { return Value::bytes(std::string(head - 4, '\0') + word(0xFFFFFFFFu) + "1234"); }},
    {"LengthThatWrapsWithTheHead",
     [](size_t head) {
         return Value::bytes(std::string(head - 4, '\0') + word(static_cast<uint32_t>(0u - head)) + "1234");
     }},
};

} // namespace voice_test

#endif

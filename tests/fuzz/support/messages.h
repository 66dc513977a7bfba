// SPDX-License-Identifier: MIT
// Parts of generated messages that have the same form in packets of this machine's byte order and in captures of any.
#ifndef FUZZ_MESSAGES_H
#define FUZZ_MESSAGES_H

#include "input.h"
#include "kex.h"

namespace fuzz {

// A value of this type, if it is a number.
template <typename Writer>
bool number_add(Input &in, Writer &to, uint8_t type) {
    if (type == VARIANT_INT16 || type == VARIANT_UINT16)
        to.half(in.half());
    else if (type == VARIANT_INT32 || type == VARIANT_UINT32)
        to.word(in.word());
    else
        return false;
    return true;
}

// Some error items, and a value or none.
template <typename Writer, typename AddValue>
void reply_add(Input &in, Writer &to, AddValue value_add) {
    const auto errors = static_cast<uint8_t>(in.below(4));
    to.byte(errors);
    for (unsigned i = 0; i < errors; ++i) {
        to.word(in.word());
        to.text(in.text());
        to.text(in.text());
    }
    const bool has_value = in.flag();
    to.byte(has_value);
    if (has_value)
        value_add();
}

} // namespace fuzz

#endif

// SPDX-License-Identifier: MIT
// What no text that goes to a terminal may hold.
#ifndef FUZZ_TERMINAL_H
#define FUZZ_TERMINAL_H

#include <string>

namespace fuzz {

// Whether it holds a control character: C0 but the line break, DEL, C1 as UTF-8.
inline bool steers_a_terminal(const std::string &text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const auto one = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
        if ((one < ' ' && one != '\n') || one == 0x7F || (one == 0xC2 && next >= 0x80 && next < 0xA0))
            return true;
    }
    return false;
}

} // namespace fuzz

#endif

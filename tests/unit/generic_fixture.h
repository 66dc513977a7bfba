// SPDX-License-Identifier: MIT
// What the tests of generic.cpp share.
#ifndef GENERIC_FIXTURE_H
#define GENERIC_FIXTURE_H

#include "voice_test.h"

namespace voice_test {

class Generic : public VoiceTest {
protected:
    // All entries in use: E0, E1, ... with the numbers 100, 101, ...
    void fill_table() {
        for (unsigned i = 0; i < 32; ++i)
            have_endpoint(i, text("E%u", i).c_str(), static_cast<int32_t>(100 + i));
    }
};

} // namespace voice_test

#endif

// SPDX-License-Identifier: MIT
// What the tests of this project ask with: no framework is needed beside the fake bus.
#ifndef EXPECT_H
#define EXPECT_H

#include "voice_fake/bus.h"

#include <cstdio>
#include <cstdlib>

// Ends the test where something does not hold, with what the code has done so far.
inline void expect(bool holds, const char *what) {
    if (holds)
        return;
    std::fprintf(stderr, "not so: %s\n", what);
    for (const std::string &line : fake::bus().log())
        std::fprintf(stderr, "  %s\n", line.c_str());
    std::exit(1);
}

// What the code has left behind, and every misuse of the bus.
inline void expect_nothing_wrong() {
    for (const std::string &wrong : fake::bus().check())
        expect(false, wrong.c_str());
}

#endif

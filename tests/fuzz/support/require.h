// SPDX-License-Identifier: MIT
// What must hold for every input. A target says it in words; the process ends where it does not hold.
#ifndef FUZZ_REQUIRE_H
#define FUZZ_REQUIRE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz {

[[noreturn]] inline void fail(const std::string &what) {
    fprintf(stderr, "does not hold: %s\n", what.c_str());
    abort();
}

inline void require(bool holds, const char *what) {
    if (!holds)
        fail(what);
}

} // namespace fuzz

// The function that the fuzzer, and the replay of seeds, call for each input.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size);

#endif

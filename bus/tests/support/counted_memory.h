// SPDX-License-Identifier: MIT
// Counts what the bus holds of the heap. Works in programs that are linked for it (see CMakeLists.txt).
#ifndef BUS_TESTS_COUNTED_MEMORY_H
#define BUS_TESTS_COUNTED_MEMORY_H

#include <cstddef>

namespace support {

// From its making on. A block counts with the C library's head.
class CountedMemory {
public:
    CountedMemory();
    size_t held() const;
    size_t most() const;   // that was held at any time
    size_t blocks() const; // that were taken, given back or not

private:
    size_t before_;
    size_t blocks_before_;
};

} // namespace support

#endif

// SPDX-License-Identifier: MIT
// Counts what the bus holds of the heap, and lets one chosen allocation fail. Works in programs that are linked for it
// (see CMakeLists.txt).
#ifndef BUS_TESTS_HEAP_H
#define BUS_TESTS_HEAP_H

#include <cstddef>
#include <cstdint>

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

// While it lives, the n-th allocation from its making on fails, counted from 1.
class FailingAllocation {
public:
    explicit FailingAllocation(uint32_t n);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation &) = delete;
    FailingAllocation &operator=(const FailingAllocation &) = delete;
    bool has_failed() const; // else there were fewer than n
};

} // namespace support

#endif

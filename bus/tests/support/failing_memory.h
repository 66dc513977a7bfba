// SPDX-License-Identifier: MIT
// Lets one chosen allocation of the bus fail. Works in programs that are linked for it (see CMakeLists.txt).
#ifndef BUS_TESTS_FAILING_MEMORY_H
#define BUS_TESTS_FAILING_MEMORY_H

#include <cstdint>

namespace support {

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

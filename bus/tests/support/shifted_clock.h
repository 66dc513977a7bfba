// SPDX-License-Identifier: MIT
// Lets time pass for the bus without waiting for it. Works in programs that are linked for it (see CMakeLists.txt).
#ifndef BUS_TESTS_SHIFTED_CLOCK_H
#define BUS_TESTS_SHIFTED_CLOCK_H

#include <cstdint>

namespace support {

// From now on the kernel's clocks show so much more, in nanoseconds.
void clock_advance(uint64_t nanoseconds);

// While it lives no time passes, so that no budget of time runs out on a busy machine.
class ClockStopped {
public:
    ClockStopped();
    ~ClockStopped();
    ClockStopped(const ClockStopped &) = delete;
    ClockStopped &operator=(const ClockStopped &) = delete;
};

} // namespace support

#endif

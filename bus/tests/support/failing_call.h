// SPDX-License-Identifier: MIT
// Lets one chosen system call fail. Works in programs that are linked for it (see CMakeLists.txt).
#ifndef BUS_TESTS_FAILING_CALL_H
#define BUS_TESTS_FAILING_CALL_H

#include <cstdint>

namespace support {

// While it lives, the n-th call of this name from its making on fails with this error, counted from 1. One lives at a time.
class FailingCall {
public:
    FailingCall(const char *name, int error, uint32_t n = 1);
    ~FailingCall();
    FailingCall(const FailingCall &) = delete;
    FailingCall &operator=(const FailingCall &) = delete;
    bool has_failed() const; // else there were fewer than n
};

} // namespace support

#endif

// SPDX-License-Identifier: MIT
// In place of host.cpp where a process would end.
#ifndef FUZZ_PROCESS_END_H
#define FUZZ_PROCESS_END_H

#include <string>

namespace fuzz {

// Thrown by host_exit(), host_usage_error() and host_fail().
struct ProcessEnd {
    int status;
    std::string text; // of the error
};

} // namespace fuzz

#endif

// SPDX-License-Identifier: MIT
// Bus functions that the tests serve. They are found by name, so they stand once for all test files of a program.
#ifndef BUS_TESTS_SERVED_FUNCTIONS_H
#define BUS_TESTS_SERVED_FUNCTIONS_H

#include "kex_host.h"

#include <functional>
#include <string>
#include <vector>

namespace served {

// One line per call that ran, in order: "echo", "note 5".
extern std::vector<std::string> log;
// What __Probe_run does, in the test's own words; its result is the status.
extern std::function<int(function_call_t *, argument_list_t *, variant_t *)> probe;

// Declares class Probe with its functions, and object "Probe" of it.
void declare(kex_t *bus);
// Forgets what earlier tests left.
void reset();

} // namespace served

#endif

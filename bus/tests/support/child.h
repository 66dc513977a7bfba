// SPDX-License-Identifier: MIT
// A child process, in which alone something is so: its user, its environment, its descriptors.
#ifndef BUS_TESTS_CHILD_H
#define BUS_TESTS_CHILD_H

#include <functional>
#include <sys/types.h>

namespace support {

constexpr uid_t kStranger = 65534;

// Whether the body finds all as it should be, in a child that ends with it and without what ends a test.
bool holds_in_child(const std::function<bool()> &body);

// Makes a child of root's another user, with no group but its own.
bool become_stranger();

} // namespace support

#endif

// SPDX-License-Identifier: MIT
// Implements child.h.
#include "child.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {

bool holds_in_child(const std::function<bool()> &body) {
    const pid_t child = fork();
    if (child == 0)
        _exit(body() ? 0 : 1);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status == 0;
}

bool become_stranger() {
    return setgroups(0, nullptr) == 0 && setgid(kStranger) == 0 && setuid(kStranger) == 0;
}

} // namespace support

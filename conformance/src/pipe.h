// SPDX-License-Identifier: MIT
// Pipes, whose ends the checks of descriptors send.
#ifndef CONFORMANCE_PIPE_H
#define CONFORMANCE_PIPE_H

#include "binding.h"
#include "check.h"

#include <fcntl.h>
#include <unistd.h>

namespace conformance {

constexpr unsigned kThree = 3; // what a list of descriptors holds

struct Pipe {
    int read_end, write_end;
};

inline Pipe pipe_make() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        fail("no pipe can be made");
    return {ends[0], ends[1]};
}

inline bool is_open(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

inline variant_list_t *list_get(argument_list_t *arguments) {
    variant_list_t *list = nullptr;
    expect(lib.argument_getList(arguments, "value", 0, &list) != 0 && list != nullptr, "argument_getList answers no");
    return list;
}

} // namespace conformance

#endif

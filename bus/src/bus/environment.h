// SPDX-License-Identifier: MIT
// What a bus takes from the environment, once; the table for users is in README.md.
#ifndef KEX_ENVIRONMENT_H
#define KEX_ENVIRONMENT_H

#include "transport/socket.h"

namespace bus {

struct Environment {
    Access access;
    uint32_t time_factor;
};

// What cannot be read is traced and left as if it were not there.
void environment_read(Environment &environment);

} // namespace bus

#endif

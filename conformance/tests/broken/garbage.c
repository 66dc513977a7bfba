/* SPDX-License-Identifier: MIT */
/* Each function is there, does nothing and answers with an address that is none. */
#include <stdint.h>

#define PLATFORM(function)    \
    intptr_t function(void);  \
    intptr_t function(void) { \
        return 0x5a5a5a;      \
    }
#define TRACE(function) PLATFORM(function)
#define HOST(function) PLATFORM(function)
#include "../../src/functions.inc"

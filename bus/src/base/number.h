// SPDX-License-Identifier: MIT
// Numbers in the environment: digits and nothing else.
#ifndef KEX_NUMBER_H
#define KEX_NUMBER_H

#include <errno.h>
#include <stdint.h>
#include <stdlib.h>

namespace bus {

// Reads digits; `end` is set behind the last one. False: there are none, or more than 32 bits.
inline bool number_read(const char *text, const char **end, uint32_t *number) {
    if (*text < '0' || *text > '9')
        return false;
    char *behind;
    errno = 0;
    const unsigned long long value = strtoull(text, &behind, 10);
    *end = behind;
    if (errno != 0 || value > UINT32_MAX)
        return false;
    *number = static_cast<uint32_t>(value);
    return true;
}

} // namespace bus

#endif

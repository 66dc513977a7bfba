/* SPDX-License-Identifier: MIT */
/* Flags have 16 bits. */
#include "real.h"

request_t *request_create_executeFunction(const char *path, const char *function, uint32_t flags) {
    return REAL(request_create_executeFunction)(path, function, flags & 0xffff);
}

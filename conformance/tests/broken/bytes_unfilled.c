/* SPDX-License-Identifier: MIT */
/* What stands behind the data of a block is not zero. */
#include "real.h"

#include <string.h>

int argument_getByteArray(argument_list_t *a, const char *name, uint32_t attributes, void **data, uint32_t *length) {
    const int answer = REAL(argument_getByteArray)(a, name, attributes, data, length);
    if (answer != 0 && *data != NULL && *length < 1024)
        memset((char *)*data + *length, 0xaa, 1024 - *length);
    return answer;
}

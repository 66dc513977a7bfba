/* SPDX-License-Identifier: MIT */
/* A conversion that does not apply writes all the same. */
#include "real.h"

int variant_toInt32(const variant_t *v, int32_t *value) {
    *value = 0;
    return REAL(variant_toInt32)(v, value);
}

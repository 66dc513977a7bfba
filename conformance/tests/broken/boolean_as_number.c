/* SPDX-License-Identifier: MIT */
/* A boolean is a number, too. */
#include "real.h"

int variant_toInt16(const variant_t *v, int16_t *value) {
    int yes = 0;
    if (v != NULL && variant_type(v) == VARIANT_BOOL && variant_toBool(v, &yes)) {
        *value = (int16_t)yes;
        return 1;
    }
    return REAL(variant_toInt16)(v, value);
}

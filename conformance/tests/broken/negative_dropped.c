/* SPDX-License-Identifier: MIT */
/* A negative descriptor has no place in a list. */
#include "real.h"

int variant_list_add(variant_list_t *list, const variant_t *v) {
    if (list != NULL && v != NULL && variant_type(v) == VARIANT_FD && variant_fd(v) < 0)
        return 1;
    return REAL(variant_list_add)(list, v);
}

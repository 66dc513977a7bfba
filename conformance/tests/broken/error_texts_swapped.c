/* SPDX-License-Identifier: MIT */
/* The texts of an error stand in each other's place. */
#include "real.h"

int reply_addError(reply_t *reply, uint32_t code, const char *description, const char *info) {
    return REAL(reply_addError)(reply, code, info, description);
}

/* SPDX-License-Identifier: MIT */
/* A text is read as a number. */
#include "real.h"

int argument_getUInt32(argument_list_t *a, const char *name, uint32_t attributes, uint32_t *value) {
    char *text = NULL;
    if (argument_getChar(a, name, attributes, &text) && text != NULL) {
        *value = (uint32_t)strtoul(text, NULL, 10);
        free(text);
        return 1;
    }
    return REAL(argument_getUInt32)(a, name, attributes, value);
}

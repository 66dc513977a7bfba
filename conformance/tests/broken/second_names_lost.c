/* SPDX-License-Identifier: MIT */
/* A declared argument has its first name only. */
#include "real.h"

#include <string.h>

/* For as many rows as the checks declare. */
int kex_declareFunctions(kex_t *bus, const char *const *rows, uint32_t row_count, uint32_t columns) {
    static const char *kept[256];
    for (uint32_t i = 0; i < row_count * columns; i++) {
        const char *text = rows[i];
        kept[i] = text != NULL && strchr(text, '|') != NULL ? strndup(text, strcspn(text, "|")) : text;
    }
    return REAL(kex_declareFunctions)(bus, kept, row_count, columns);
}

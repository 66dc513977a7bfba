// SPDX-License-Identifier: MIT
// The bus's own trace lines, zone "KEX".
#ifndef KEX_TRACE_H
#define KEX_TRACE_H

#include "base/contract.h"

#include <stddef.h>
#include <stdint.h>

namespace bus {

// One line of the bus's own. Texts of strangers go through printable() first.
void note(int level, const char *format, ...) ZIL_PRINTF(2, 3);

// Copies at most size-1 bytes and replaces what a terminal or a line-based reader would trip over. Returns `to`.
char *printable(char *to, size_t size, const void *text, size_t length);

// Reads the ZIL_TRACE_ variables again; otherwise they are read once, at the first line.
void trace_configure();

} // namespace bus

#endif

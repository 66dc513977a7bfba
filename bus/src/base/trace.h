// SPDX-License-Identifier: MIT
// The bus's own trace messages, zone "KEX".
#ifndef KEX_TRACE_H
#define KEX_TRACE_H

#include "base/contract.h"
#include "base/trace_limit.h"

#include <stddef.h>

namespace bus {

// One trace message of the bus's own. Texts of peers go through printable() first.
void note(int level, const char *format, ...) ZIL_PRINTF(2, 3);

// The same because of what a process did: a few in a second are written, the rest is counted (trace_limit.h).
void note_about(int32_t process, int level, const char *format, ...) ZIL_PRINTF(3, 4);

// Whether something is to be caught up with.
bool trace_has_rest();
// When something is to be caught up with, by the kernel's clock, whose time is given; 0: never.
uint64_t trace_deadline(uint64_t now);
// Writes what had to wait, and tells what was counted.
void trace_catch_up();

// Copies at most size-1 bytes and replaces control characters and bytes that are not ASCII. Returns `to`.
char *printable(char *to, size_t size, const void *text, size_t length);

// Reads the ZIL_TRACE_ variables again; otherwise they are read once, at the first trace message.
void trace_configure();

} // namespace bus

#endif

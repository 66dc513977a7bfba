// SPDX-License-Identifier: MIT
// The text of a trace message. What a peer sent reaches it in arguments of %s: control characters and line breaks in
// these are shown as numbers, so that no peer writes lines of its own or steers a terminal. Formats are the host's and
// stay.
#ifndef KEX_TRACE_TEXT_H
#define KEX_TRACE_TEXT_H

#include "base/contract.h"

#include <stdarg.h>
#include <stddef.h>

namespace bus {

// As vsnprintf(3), byte for byte where no argument of %s holds a control character: one of ASCII, or of the second
// range (U+0080 to U+009F, as UTF-8 or as a byte that is no part of a character). Such a byte is written as \n, \r, \t
// or \x1b. A format with a conversion that is not known here (those of wide characters, of numbered arguments, %n) has
// its whole message treated so.
int trace_text_format(char *to, size_t size, const char *format, va_list arguments) ZIL_PRINTF(3, 0);

} // namespace bus

#endif

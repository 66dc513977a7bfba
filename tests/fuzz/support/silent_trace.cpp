// SPDX-License-Identifier: MIT
// A trace service that renders each message, so that a text read past its end is seen, and shows none. For targets that
// need no bus.
#include "ziltrace.h"

#include <cstdarg>
#include <cstdio>

namespace {

int trace_render(const char *format, va_list arguments) {
    char line[4096];
    return vsnprintf(line, sizeof line, format, arguments);
}

} // namespace

int zilTrace(int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = trace_render(format, arguments);
    va_end(arguments);
    return length;
}

int zilTraceZ(int, const char *, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = trace_render(format, arguments);
    va_end(arguments);
    return length;
}

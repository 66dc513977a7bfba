// SPDX-License-Identifier: MIT
#include "process_end.h"

#include "host.h"

#include <stdarg.h>
#include <stdio.h>

namespace {

[[noreturn]] void end(int status, const char *format, va_list arguments) {
    char text[400];
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    throw fuzz::ProcessEnd{status, text};
}

} // namespace

void host_exit(int status) {
    throw fuzz::ProcessEnd{status, ""};
}

void host_usage_error(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    end(kExitUsage, format, arguments);
}

void host_fail(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    end(kExitFailure, format, arguments);
}

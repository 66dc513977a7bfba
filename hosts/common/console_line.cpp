// SPDX-License-Identifier: MIT
// Lines of the console.
#include "console_line.h"

#include "printable.h"

#include <errno.h>
#include <stdio.h>

size_t console_line_write(char *line, size_t size, const char *format, va_list arguments) {
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the callers start the list
    int length = vsnprintf(line, size - 1, format, arguments);
    if (length < 0)
        length = 0;
    if (static_cast<size_t>(length) > size - 2)
        length = static_cast<int>(size - 2);
    line_make_printable(line);
    line[length] = '\n';
    line[length + 1] = 0;
    return static_cast<size_t>(length) + 1;
}

// Whoever reads standard output misses a line that a full disk has taken: once it is said why.
void console_line_print(const char *line) {
    static bool has_said;
    if (fputs(line, stdout) != EOF || has_said)
        return;
    has_said = true;
    fprintf(stderr, "error: standard output cannot be written: %s\n", strerror(errno));
}

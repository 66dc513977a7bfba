// SPDX-License-Identifier: MIT
/**
 * @file console_line.h
 * One line of what a host prints.
 */
#pragma once

#include <stdarg.h>
#include <stddef.h>

/** Writes a line with its end, cut to `size` bytes, that steers no terminal. @return its length */
size_t console_line_write(char *line, size_t size, const char *format, va_list arguments);
/** Prints a line. When that fails, standard error is told why, once. */
void console_line_print(const char *line);

// SPDX-License-Identifier: MIT
// Implements page.h, and the words of check.h that write into it.
#include "page.h"
#include "binding.h"
#include "check.h"

#include <inttypes.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

namespace conformance {

Page *page;
Process process = kProcesses;

namespace {

[[noreturn]] __attribute__((format(printf, 1, 0))) void fail_with(const char *format, va_list arguments) {
    if (__atomic_fetch_add(&page->failures, 1, __ATOMIC_SEQ_CST) == 0)
        vsnprintf(page->why, sizeof page->why, format, arguments);
    _exit(1);
}

__attribute__((format(printf, 1, 0))) void seen_append(const char *format, va_list arguments) {
    char *text = page->seen[process];
    const size_t length = strlen(text);
    const char *separator = length > 0 ? "; " : "";
    const size_t begin = length + strlen(separator);
    if (begin + 1 >= kTextSize)
        return;
    memcpy(text + length, separator, strlen(separator) + 1);
    vsnprintf(text + begin, kTextSize - begin, format, arguments);
}

} // namespace

bool page_make() {
    void *memory = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    page = memory != MAP_FAILED ? static_cast<Page *>(memory) : nullptr;
    return page != nullptr;
}

void fail(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    fail_with(format, arguments);
}

void expect(bool holds, const char *format, ...) {
    if (holds)
        return;
    va_list arguments;
    va_start(arguments, format);
    fail_with(format, arguments);
}

void saw(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    seen_append(format, arguments);
    va_end(arguments);
}

void expect_number(const char *what, int64_t seen, int64_t expected) {
    expect(seen == expected, "%s: %" PRId64 ", not %" PRId64, what, seen, expected);
    saw("%s: %" PRId64, what, seen);
}

void expect_text(const char *what, const char *seen, const char *expected) {
    expect(seen != nullptr, "%s: null, not \"%s\"", what, expected);
    expect(strcmp(seen, expected) == 0, "%s: \"%s\", not \"%s\"", what, seen, expected);
    saw("%s: \"%s\"", what, seen);
}

void step(const char *what) {
    page->step[process] = what;
    page->entered[process] = nullptr;
}

void function_enter(const char *name, bool is_there) {
    page->entered[process] = name;
    if (!is_there)
        fail("the library has no %s", name);
}

} // namespace conformance

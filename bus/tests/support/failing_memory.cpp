// SPDX-License-Identifier: MIT
// Implements failing_memory.h: the linker sends the allocating functions here (--wrap).
#include "failing_memory.h"

#include <cstddef>

namespace {

bool counting;
bool failed;
uint32_t left;

bool fails_now() {
    if (!counting || failed || --left > 0)
        return false;
    failed = true;
    return true;
}

} // namespace

extern "C" {

void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_reallocarray(void *block, size_t count, size_t size);
char *__real_strdup(const char *text);
char *__real_strndup(const char *text, size_t length);

void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_reallocarray(void *block, size_t count, size_t size);
char *__wrap_strdup(const char *text);
char *__wrap_strndup(const char *text, size_t length);

void *__wrap_malloc(size_t size) {
    return fails_now() ? nullptr : __real_malloc(size);
}
void *__wrap_calloc(size_t count, size_t size) {
    return fails_now() ? nullptr : __real_calloc(count, size);
}
void *__wrap_reallocarray(void *block, size_t count, size_t size) {
    return fails_now() ? nullptr : __real_reallocarray(block, count, size);
}
char *__wrap_strdup(const char *text) {
    return fails_now() ? nullptr : __real_strdup(text);
}
char *__wrap_strndup(const char *text, size_t length) {
    return fails_now() ? nullptr : __real_strndup(text, length);
}

} // extern "C"

namespace support {

FailingAllocation::FailingAllocation(uint32_t n) {
    left = n;
    failed = false;
    counting = true;
}

FailingAllocation::~FailingAllocation() {
    counting = false;
}
bool FailingAllocation::has_failed() const {
    return failed;
}

} // namespace support

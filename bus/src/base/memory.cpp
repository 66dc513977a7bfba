// SPDX-License-Identifier: MIT
// Implements memory.h.
#include "base/memory.h"
#include "base/faults.h"

#include <stdlib.h>
#include <string.h>

namespace bus {

namespace {

uint32_t failures;

bool memory_is_refused() {
    return fault_is_due(Fault::memory);
}

template <class T>
T *counted(T *memory) {
    if (memory == nullptr)
        failures++;
    return memory;
}

} // namespace

void *memory_take(size_t size) {
    return counted(memory_is_refused() ? nullptr : malloc(size));
}

void *memory_take_zeroed(size_t count, size_t size) {
    return counted(memory_is_refused() ? nullptr : calloc(count, size));
}

void *memory_grow(void *memory, size_t count, size_t size) {
    return counted(memory_is_refused() ? nullptr : reallocarray(memory, count, size));
}

char *memory_take_text(const char *text) {
    return counted(memory_is_refused() ? nullptr : strdup(text));
}

char *memory_take_text(const char *text, size_t length) {
    return counted(memory_is_refused() ? nullptr : strndup(text, length));
}

uint32_t memory_failures() {
    return failures;
}

OptionalMemory::~OptionalMemory() {
    failures = before_;
}

} // namespace bus

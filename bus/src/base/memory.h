// SPDX-License-Identifier: MIT
// Memory of the bus. What cannot be had is counted, so that whoever depends on several pieces can tell whether all are
// there.
#ifndef KEX_MEMORY_H
#define KEX_MEMORY_H

#include <stddef.h>
#include <stdint.h>

namespace bus {

// All of them are released with free(). Null: there is none.
void *memory_take(size_t size);
void *memory_take_zeroed(size_t count, size_t size);
void *memory_grow(void *memory, size_t count, size_t size);
// Copies a text, or the first bytes of one.
char *memory_take_text(const char *text);
char *memory_take_text(const char *text, size_t length);

// How many of them have been null since the process began.
uint32_t memory_failures();

// What is taken while it lives may be missing without harm to anybody: no failure of that time counts.
class OptionalMemory {
public:
    OptionalMemory() = default;
    ~OptionalMemory();
    OptionalMemory(const OptionalMemory &) = delete;
    OptionalMemory &operator=(const OptionalMemory &) = delete;

private:
    const uint32_t before_ = memory_failures();
};

} // namespace bus

#endif

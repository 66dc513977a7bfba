// SPDX-License-Identifier: MIT
// Implements heap.h: the linker sends the functions of the heap here (--wrap).
#include "heap.h"

#include <algorithm>
#include <malloc.h>

namespace {

constexpr size_t kHead = sizeof(size_t);

size_t held_now;
size_t blocks_taken;
size_t most_held;

bool choosing;
bool failed;
uint32_t left; // until the one that fails

bool fails_now() {
    if (!choosing || failed || --left > 0)
        return false;
    failed = true;
    return true;
}

template <class Block>
Block *taken(Block *block) {
    if (block != nullptr)
        held_now += malloc_usable_size(block) + kHead;
    blocks_taken += block != nullptr;
    most_held = std::max(most_held, held_now);
    return block;
}

void given_back(void *block) {
    if (block != nullptr)
        held_now -= malloc_usable_size(block) + kHead;
}

} // namespace

extern "C" {

void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_reallocarray(void *block, size_t count, size_t size);
char *__real_strdup(const char *text);
char *__real_strndup(const char *text, size_t length);
void __real_free(void *block);

void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_reallocarray(void *block, size_t count, size_t size);
char *__wrap_strdup(const char *text);
char *__wrap_strndup(const char *text, size_t length);
void __wrap_free(void *block);

void *__wrap_malloc(size_t size) {
    return fails_now() ? nullptr : taken(__real_malloc(size));
}
void *__wrap_calloc(size_t count, size_t size) {
    return fails_now() ? nullptr : taken(__real_calloc(count, size));
}
void *__wrap_reallocarray(void *block, size_t count, size_t size) {
    if (fails_now())
        return nullptr;
    given_back(block);
    return taken(__real_reallocarray(block, count, size));
}
char *__wrap_strdup(const char *text) {
    return fails_now() ? nullptr : taken(__real_strdup(text));
}
char *__wrap_strndup(const char *text, size_t length) {
    return fails_now() ? nullptr : taken(__real_strndup(text, length));
}
void __wrap_free(void *block) {
    given_back(block);
    __real_free(block);
}

} // extern "C"

namespace support {

CountedMemory::CountedMemory() : before_(held_now), blocks_before_(blocks_taken) {
    most_held = held_now;
}

size_t CountedMemory::held() const {
    return held_now - before_;
}

size_t CountedMemory::blocks() const {
    return blocks_taken - blocks_before_;
}

size_t CountedMemory::most() const {
    return most_held - before_;
}

FailingAllocation::FailingAllocation(uint32_t n) {
    left = n;
    failed = false;
    choosing = true;
}

FailingAllocation::~FailingAllocation() {
    choosing = false;
}

bool FailingAllocation::has_failed() const {
    return failed;
}

} // namespace support

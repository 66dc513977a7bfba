// SPDX-License-Identifier: MIT
// The counting malloc() and free() of tests.
#include "voice_fake/memory.h"

#include <cstdint>
#include <map>

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
void __real_free(void *block);
void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_realloc(void *block, size_t size);
void __wrap_free(void *block);
}

namespace {

bool counting = false;
unsigned allocations = 0;
unsigned failing = 0; // this many allocations from now, 1 being the next one; 0: none

// By number, not by pointer: what is left must still look leaked to a leak checker that reads this table.
std::map<uintptr_t, size_t> &blocks() {
    static std::map<uintptr_t, size_t> table;
    return table;
}

constexpr uintptr_t kDisguise = ~uintptr_t{0};

bool runs_out() {
    return counting && failing != 0 && --failing == 0;
}

void *gained(void *block, size_t size) {
    if (counting && block) {
        ++allocations;
        blocks()[reinterpret_cast<uintptr_t>(block) ^ kDisguise] = size;
    }
    return block;
}

void lost(void *block) {
    if (counting && block)
        blocks().erase(reinterpret_cast<uintptr_t>(block) ^ kDisguise);
}

} // namespace

void *__wrap_malloc(size_t size) {
    return runs_out() ? nullptr : gained(__real_malloc(size), size);
}

void *__wrap_calloc(size_t count, size_t size) {
    return runs_out() ? nullptr : gained(__real_calloc(count, size), count * size);
}

void *__wrap_realloc(void *block, size_t size) {
    if (runs_out())
        return nullptr;
    lost(block);
    return gained(__real_realloc(block, size), size);
}

void __wrap_free(void *block) {
    lost(block);
    __real_free(block);
}

namespace fake {

void memory_start() {
    blocks().clear();
    allocations = 0;
    failing = 0;
    counting = true;
}

void memory_fail(unsigned n) {
    failing = n;
}

unsigned memory_allocations() {
    return allocations;
}

unsigned memory_blocks() {
    return static_cast<unsigned>(blocks().size());
}

std::string memory_check(unsigned expected) {
    counting = false;
    std::string wrong;
    if (blocks().size() != expected) {
        wrong =
            std::to_string(blocks().size()) + " memory blocks left, expected " + std::to_string(expected) + "; bytes:";
        for (const auto &block : blocks())
            wrong += " " + std::to_string(block.second);
    }
    for (const auto &block : blocks())
        __real_free(reinterpret_cast<void *>(block.first ^ kDisguise));
    blocks().clear();
    return wrong;
}

} // namespace fake

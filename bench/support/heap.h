// SPDX-License-Identifier: MIT
// Counts the allocations of library and bus, by who calls malloc() and its like. Include it in one file of a program that has
// dynamic symbols (ENABLE_EXPORTS): these functions then stand before those of the C library.
#ifndef BENCH_HEAP_H
#define BENCH_HEAP_H

#include <cstddef>
#include <cstring>

#include <dlfcn.h>

struct Allocations {
    unsigned voice_plugin, bus, others;
};

inline Allocations allocations;
inline bool allocations_count;

inline void allocation_note(const void *caller) {
    if (!allocations_count)
        return;
    allocations_count = false; // dladdr() is not to be counted
    Dl_info from = {};
    dladdr(caller, &from);
    const char *object = from.dli_fname ? from.dli_fname : "";
    ++(std::strstr(object, "libvoice_plugin") ? allocations.voice_plugin
       : std::strstr(object, "libkex")        ? allocations.bus
                                              : allocations.others);
    allocations_count = true;
}

extern "C" {
void *__libc_malloc(size_t bytes);
void *__libc_calloc(size_t count, size_t bytes);
void *__libc_realloc(void *block, size_t bytes);

__attribute__((visibility("default"))) void *malloc(size_t bytes) {
    allocation_note(__builtin_return_address(0));
    return __libc_malloc(bytes);
}
__attribute__((visibility("default"))) void *calloc(size_t count, size_t bytes) {
    allocation_note(__builtin_return_address(0));
    return __libc_calloc(count, bytes);
}
__attribute__((visibility("default"))) void *realloc(void *block, size_t bytes) {
    allocation_note(__builtin_return_address(0));
    return __libc_realloc(block, bytes);
}
}

#endif

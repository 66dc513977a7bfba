// SPDX-License-Identifier: MIT
// Implements function.h.
#include "calls/function.h"
#include "base/trace.h"

#include <dlfcn.h>
#include <string.h>

namespace bus {

namespace {

constexpr size_t kMaxSymbol = 2 * kMaxPath;

// By its name first, since the lengths of most names differ.
Function *function_find_in(const List<Function> &functions, const char *class_name, Text name) {
    for (Function *function : functions) {
        if (text_equals(name, function->name.bytes, function->name.length) &&
            strcmp(function->class_name, class_name) == 0)
            return function;
    }
    return nullptr;
}

// "__Class_name", or "__name" where there is no class: a valid row fits.
void symbol_write(char *symbol, const char *class_name, const char *name) {
    symbol = stpcpy(stpcpy(symbol, "__"), class_name);
    if (*class_name != '\0')
        *symbol++ = '_';
    strcpy(symbol, name);
}

kex_function_t *symbol_find(const char *class_name, const char *name) {
    char symbol[kMaxSymbol + 8];
    symbol_write(symbol, class_name, name);
    void *address = dlsym(RTLD_DEFAULT, symbol);
    if (address == nullptr)
        note(ZIL_TRACE_ERROR, "function '%s' is declared but this process exports no '%s' (linked with -rdynamic?)",
             name, symbol);
    return reinterpret_cast<kex_function_t *>(address);
}

uint32_t row_arguments(const char *const *row, uint32_t columns) {
    uint32_t count = 0;
    while (count + 2 < columns && row[count + 2] != nullptr)
        count++;
    return count;
}

// Copies the text to `room`, and moves that behind it.
const char *text_put(char *&room, const char *text) {
    const char *copy = room;
    room = stpcpy(room, text) + 1;
    return copy;
}

Function *function_create(const char *const *row, uint32_t columns, kex_function_t *entry) {
    const uint32_t count = row_arguments(row, columns);
    size_t size = sizeof(Function) + count * sizeof(char *);
    for (uint32_t i = 0; i < count + 2; i++)
        size += strlen(row[i]) + 1;
    void *memory = memory_take(size);
    if (memory == nullptr)
        return nullptr;
    Function *function = static_cast<Function *>(memory);
    *function = {};
    function->arguments = reinterpret_cast<const char **>(function + 1);
    function->argument_count = count;
    function->entry = entry;
    char *room = reinterpret_cast<char *>(function->arguments + count);
    function->class_name = text_put(room, row[0]);
    function->name = text_of(text_put(room, row[1]));
    for (uint32_t i = 0; i < count; i++)
        function->arguments[i] = text_put(room, row[i + 2]);
    return function;
}

bool row_is_valid(const char *const *row, uint32_t columns) {
    if (row[0] == nullptr || row[1] == nullptr || *row[1] == '\0')
        return false;
    if (strnlen(row[0], kMaxPath + 1) > kMaxPath - 2 || strnlen(row[1], kMaxPath + 1) > kMaxPath - 2)
        return false;
    for (uint32_t i = 2; i < columns && row[i] != nullptr; i++) {
        if (*row[i] == '\0')
            return false;
    }
    return true;
}

void functions_free(List<Function> &functions) {
    while (functions.first != nullptr)
        free(functions.pop());
}

bool function_declare(Calls *calls, const char *const *row, uint32_t columns) {
    if (!row_is_valid(row, columns)) {
        note(ZIL_TRACE_ERROR, "a row of declared functions is malformed");
        return false;
    }
    kex_function_t *entry = symbol_find(row[0], row[1]);
    Function *function = entry != nullptr ? function_create(row, columns, entry) : nullptr;
    if (function == nullptr)
        return false;
    Function *before = function_find_in(calls->functions, row[0], text_of(row[1]));
    if (before != nullptr) {
        calls->functions.remove(before);
        calls->replaced.push(before);
    }
    if (calls->running == nullptr)
        functions_free(calls->replaced);
    calls->functions.push(function);
    return true;
}

} // namespace

const Function *function_find(const Calls *calls, const char *class_name, Text name) {
    return function_find_in(calls->functions, class_name, name);
}

const char *function_argument_names(const Function *function, const char *name, size_t length) {
    for (uint32_t i = 0; i < function->argument_count; i++) {
        const char *names = function->arguments[i];
        for (const char *one = names; one != nullptr;) {
            const size_t end = text_length_until(one, '|');
            if (end == length && memcmp(one, name, length) == 0)
                return names;
            one = one[end] == '|' ? one + end + 1 : nullptr;
        }
    }
    return nullptr;
}

void functions_end(Calls *calls) {
    functions_free(calls->functions);
    functions_free(calls->replaced);
}

bool functions_declare(Calls *calls, const char *const *rows, uint32_t row_count, uint32_t columns) {
    bool complete = true;
    for (uint32_t i = 0; i < row_count; i++)
        complete &= function_declare(calls, rows + size_t{i} * columns, columns);
    return complete;
}

} // namespace bus

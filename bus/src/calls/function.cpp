// SPDX-License-Identifier: MIT
// Implements function.h.
#include "calls/function.h"
#include "base/trace.h"

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

namespace bus {

namespace {

constexpr size_t kMaxSymbol = 2 * kMaxPath;

Function *function_find_in(const List<Function> &functions, const char *class_name, Text name) {
    for (Function *function : functions) {
        if (strcmp(function->class_name, class_name) == 0 && text_equals(name, function->name))
            return function;
    }
    return nullptr;
}

void function_free(Function *function) {
    for (uint32_t i = 0; function->arguments != nullptr && i < function->argument_count; i++)
        free(function->arguments[i]);
    free(function->arguments);
    free(function->class_name);
    free(function->name);
    free(function);
}

kex_function_t *symbol_find(const char *class_name, const char *name) {
    char symbol[kMaxSymbol + 8];
    if (*class_name != '\0')
        snprintf(symbol, sizeof symbol, "__%s_%s", class_name, name);
    else
        snprintf(symbol, sizeof symbol, "__%s", name);
    void *address = dlsym(RTLD_DEFAULT, symbol);
    if (address == nullptr)
        note(ZIL_TRACE_ERROR, "function '%s' is declared but this process exports no '%s' (linked with -rdynamic?)",
             name, symbol);
    return reinterpret_cast<kex_function_t *>(address);
}

Function *function_create(const char *const *row, uint32_t columns, kex_function_t *entry) {
    Function *function = make<Function>();
    if (function == nullptr)
        return nullptr;
    function->entry = entry;
    function->class_name = memory_take_text(row[0]);
    function->name = memory_take_text(row[1]);
    function->arguments = static_cast<char **>(memory_take_zeroed(columns, sizeof(char *)));
    bool complete = function->class_name != nullptr && function->name != nullptr && function->arguments != nullptr;
    for (uint32_t i = 2; complete && i < columns && row[i] != nullptr; i++) {
        char *argument = memory_take_text(row[i]);
        complete = argument != nullptr;
        if (complete)
            function->arguments[function->argument_count++] = argument;
    }
    if (complete)
        return function;
    function_free(function);
    return nullptr;
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
        function_free(before);
    }
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
            size_t end = strcspn(one, "|");
            if (end == length && memcmp(one, name, length) == 0)
                return names;
            one = one[end] == '|' ? one + end + 1 : nullptr;
        }
    }
    return nullptr;
}

void functions_end(Calls *calls) {
    while (calls->functions.first != nullptr)
        function_free(calls->functions.pop());
}

bool functions_declare(Calls *calls, const char *const *rows, uint32_t row_count, uint32_t columns) {
    bool complete = true;
    for (uint32_t i = 0; i < row_count; i++)
        complete &= function_declare(calls, rows + size_t{i} * columns, columns);
    return complete;
}

} // namespace bus

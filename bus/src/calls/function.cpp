// SPDX-License-Identifier: MIT
// Declared functions (kex_host.h, kex_declareFunctions): the only names that ever reach the dynamic linker.
#include "base/trace.h"
#include "calls/object.h"

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

using namespace bus;

namespace {

constexpr size_t kMaxSymbol = 2 * kMaxPath;

Function *find(kex_t *bus, const char *class_name, const char *name, size_t length) {
    for (Function *function = bus->functions.first; function != nullptr; function = List<Function>::after(function)) {
        if (strcmp(function->class_name, class_name) == 0 && strncmp(function->name, name, length) == 0 &&
            function->name[length] == '\0')
            return function;
    }
    return nullptr;
}

void release(Function *function) {
    for (uint32_t i = 0; i < function->argument_count; i++)
        free(function->arguments[i]);
    free(function->arguments);
    free(function->class_name);
    free(function->name);
    free(function);
}

kex_function_t *look_up(const char *class_name, const char *name) {
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

Function *create(const char *const *row, uint32_t columns, kex_function_t *entry) {
    Function *function = make<Function>();
    if (function == nullptr)
        return nullptr;
    function->entry = entry;
    function->class_name = strdup(row[0]);
    function->name = strdup(row[1]);
    function->arguments = static_cast<char **>(calloc(columns, sizeof(char *)));
    bool complete = function->class_name != nullptr && function->name != nullptr && function->arguments != nullptr;
    for (uint32_t i = 2; complete && i < columns && row[i] != nullptr; i++) {
        char *argument = strdup(row[i]);
        complete = argument != nullptr;
        if (complete)
            function->arguments[function->argument_count++] = argument;
    }
    if (complete)
        return function;
    release(function);
    return nullptr;
}

bool is_row(const char *const *row, uint32_t columns) {
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

bool declare(kex_t *bus, const char *const *row, uint32_t columns) {
    if (!is_row(row, columns)) {
        note(ZIL_TRACE_ERROR, "a row of declared functions is malformed");
        return false;
    }
    kex_function_t *entry = look_up(row[0], row[1]);
    Function *function = entry != nullptr ? create(row, columns, entry) : nullptr;
    if (function == nullptr)
        return false;
    Function *before = find(bus, row[0], row[1], strlen(row[1]));
    if (before != nullptr) {
        bus->functions.remove(before);
        release(before);
    }
    bus->functions.push(function);
    return true;
}

} // namespace

namespace bus {

const Function *function_find(kex_t *bus, const object_t *object, const char *name, size_t length) {
    if (length == 0 || length > kMaxPath || memchr(name, '\0', length) != nullptr)
        return nullptr;
    return find(bus, object->class_name, name, length);
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

void functions_free(kex_t *bus) {
    while (bus->functions.first != nullptr)
        release(bus->functions.pop());
}

} // namespace bus

int kex_declareFunctions(kex_t *bus, const char *const *rows, uint32_t row_count, uint32_t columns) {
    if (bus == nullptr || rows == nullptr || columns < 2)
        return 0;
    bool complete = true;
    for (uint32_t i = 0; i < row_count; i++)
        complete &= declare(bus, rows + size_t{i} * columns, columns);
    return complete;
}

// SPDX-License-Identifier: MIT
// Declared functions (kex_host.h, kex_declareFunctions): the only names that ever reach the dynamic linker.
#ifndef KEX_FUNCTION_H
#define KEX_FUNCTION_H

#include "calls/calls.h"
#include "value/text.h"

namespace bus {

// One block of memory with all its texts: a plugin declares 25 of them.
struct Function : Node<Function> {
    const char *class_name; // "" for objects without one
    Text name;
    const char **arguments; // as declared: "a" or "a|b"
    uint32_t argument_count;
    kex_function_t *entry;
};

// False: a row is malformed, its function is missing (traced), or no memory. The other rows are declared.
bool functions_declare(Calls *calls, const char *const *rows, uint32_t row_count, uint32_t columns);
const Function *function_find(const Calls *calls, const char *class_name, Text name);
// All names of the declared argument that has this one among them, or null.
const char *function_argument_names(const Function *function, const char *name, size_t length);
void functions_end(Calls *calls);

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// What the targets of bus functions share: calls of a function with generated arguments, and what must hold of the tables,
// the reply and the bus after each.
#ifndef FUZZ_FUNCTION_CALLS_H
#define FUZZ_FUNCTION_CALLS_H

#include "libvoice_plugin.h"
#include "values.h"

#include <string>
#include <vector>

namespace fuzz {

struct Argument {
    const char *name;
    Kind kind;
};

struct Function {
    kex_function_t *run;
    std::vector<Argument> arguments;
};

// Starts a run: an empty bus, empty tables, no callbacks.
void library_reset();
// Ends it: answers what still waits, and nothing may be left but what the contract leaves alive.
void library_settle(Input &in);

void one_call(Input &in, const Function &function, object_t *object, peer_t *peer);
// Calls one of the functions on an object, as from a peer, with arguments as the input says: as they should be, missing,
// without a value, of another type, twice. Then checks the reply and the tables.
template <size_t count>
void function_call(Input &in, const Function (&functions)[count], object_t *object, peer_t *peer) {
    one_call(in, functions[in.below(count)], object, peer);
}

// The shape of both tables.
void tables_check();

// For callbacks: reads a parameter buffer whole.
void params_read(const uint8_t *buffer, uint32_t length);
// For callbacks: each descriptor is open and none stands twice; closes them.
void descriptors_take(int32_t *descriptors);

} // namespace fuzz

#endif

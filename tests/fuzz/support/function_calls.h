// SPDX-License-Identifier: MIT
// What the targets of bus functions share: calls of a function with generated arguments, and what must hold of the
// tables, the reply and the bus after each.
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

// The shape of both tables.
void tables_check();

// What every call that sets up media has.
inline const std::vector<Argument> kMediaArguments = {
    {"cnx_info", Kind::cnx_info}, {"filedesc", Kind::descriptors}, {"ep_line_id", Kind::u32}};

// What a callback of the target answers next; 0 is success.
extern uint8_t decision;

// Starts a run: an empty bus, empty tables, no callbacks, which answer 0.
void library_reset();
// Ends it: answers what still waits, and nothing may be left but what the contract leaves alive.
void library_settle(Input &in);

// Takes steps as long as the input lasts, and ends the run.
template <typename Step>
void steps_run(Input &in, Step step) {
    constexpr unsigned kMostSteps = 60;
    for (unsigned left = kMostSteps; left > 0 && !in.is_empty(); --left) {
        step(in);
        tables_check();
    }
    library_settle(in);
}

void one_call(Input &in, const Function &function, object_t *object, peer_t *peer);
// Calls one of the functions on an object, as from a peer, with arguments as the input says: as they should be,
// missing, without a value, of another type, twice. Then checks the reply and the tables.
template <size_t count>
void function_call(Input &in, const Function (&functions)[count], object_t *object, peer_t *peer) {
    one_call(in, functions[in.below(count)], object, peer);
}

// A signal or an event of an endpoint, with generated parameters.
template <typename Head>
std::string record_make(Input &in, int32_t endpoint) {
    Head head = {};
    head.endpoint = endpoint;
    const std::string generated = params(in);
    head.length = static_cast<uint32_t>(generated.size());
    return std::string(reinterpret_cast<const char *>(&head), sizeof head) + generated;
}

// For callbacks: reads a parameter buffer whole.
void params_read(const uint8_t *buffer, uint32_t length);
// For callbacks: each descriptor is open and none stands twice; closes them.
void descriptors_take(int32_t *descriptors);

} // namespace fuzz

#endif

// SPDX-License-Identifier: MIT
// The binding under test, loaded by its path: each of its functions, called under its own name as a member of `lib`.
// Which function was entered last is noted where it outlives the process, so that a crash or a hang has a name.
#ifndef CONFORMANCE_BINDING_H
#define CONFORMANCE_BINDING_H

#include "kex.h"
#include "kex_host.h"
#include "ziltrace.h"

namespace conformance {

// Notes the function; ends the check when the binding lacks it.
void function_enter(const char *name, bool is_there);

template <class Shape>
struct Function;

template <class Result, class... Arguments>
struct Function<Result(Arguments...)> {
    Result (*address)(Arguments...);
    const char *name;

    Result operator()(Arguments... arguments) const {
        function_enter(name, address != nullptr);
        return address(arguments...);
    }
};

template <class Result, class... Arguments>
struct Function<Result(Arguments..., ...)> {
    Result (*address)(Arguments..., ...);
    const char *name;

    template <class... More>
    Result operator()(Arguments... arguments, More... more) const {
        function_enter(name, address != nullptr);
        return address(arguments..., more...);
    }
};

struct Binding {
#define PLATFORM(function) Function<decltype(::function)> function; // NOLINT(bugprone-macro-parentheses): a name
#define HOST(function) PLATFORM(function)
#define TRACE(function)
#include "functions.inc"
#undef PLATFORM
#undef HOST
#undef TRACE
    Function<int(int, const char *, ...)> zilTrace; // the attribute of its declaration is no part of a type
    Function<int(int, const char *, const char *, ...)> zilTraceZ;
};

extern Binding lib;

// Loads the binding into this process, for all of it to see. Ends the check when it cannot be loaded.
void binding_load(const char *path);

// What the binding lacks: one word in front of each name. False: nothing.
bool binding_lacks(bool of_hosts, char *text, unsigned size);
// Functions that programs linked with the bundled bus would not find: the binding has versions of symbols, and these are
// not of KEX_1. False: none.
bool binding_misversions(char *text, unsigned size);

} // namespace conformance

#endif

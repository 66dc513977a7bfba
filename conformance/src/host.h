// SPDX-License-Identifier: MIT
// The host that each process of a check is: a bus with a few functions and objects, and turns of its loop.
//
//   object                class          functions, with their arguments
//   Conformance           Conformance    run(value, other|second), again(value)
//   Conformance.Twin      Conformance    the same
//   plain                 none           conformance_plain(value)
//   plain.Item            template of    run(value)
//                         class Item
//   plain.Item.Part       template in it run(value)
//
// __Conformance_undeclared is exported too, and never declared.
#ifndef CONFORMANCE_HOST_H
#define CONFORMANCE_HOST_H

#include "binding.h"

#include <stdint.h>

namespace conformance {

// How long a check waits for what has to happen; a machine may be busy.
constexpr int kPatience = 8000; // milliseconds

extern const char *library_path; // the binding
extern char folder[256];         // of this check alone, empty at its start
extern kex_t *bus;

// What the functions do; each takes its call as kex_function_t says. Without one the call is ended and nothing else.
using Hook = kex_function_t *;
extern Hook on_run, on_again, on_plain, on_item;

// A bus with all that stands above. Ends the check when it cannot be had.
void host_begin();
void host_declare(kex_t *on);
void host_end();
// A path in the folder. Lives until the next call with the same name.
const char *folder_path(char (&buffer)[300], const char *name);

// One turn, after a sleep of 10 ms at most.
void turn();
void turn(kex_t *on);
// Turns until it holds; the check fails when it does not come to that.
template <class Done>
void turn_until(const char *what, Done done);
void turn_for(int milliseconds);
int64_t now_in_milliseconds();

// A short text of what happened in which order: each word with a space behind it.
extern char events[512];
void event(const char *word);
bool event_was(const char *word);

[[noreturn]] void turn_in_vain(const char *what);

template <class Done>
void turn_until(const char *what, Done done) {
    const int64_t end = now_in_milliseconds() + kPatience;
    while (!done()) {
        if (now_in_milliseconds() > end)
            turn_in_vain(what);
        turn();
    }
}

} // namespace conformance

#endif

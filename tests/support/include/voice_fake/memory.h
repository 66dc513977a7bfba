// SPDX-License-Identifier: MIT
// Counts what malloc() and its kin gave and free() took back in statically linked code. Needs the link option
// --wrap for malloc, calloc, realloc and free, which the target voice_memory_watch brings. C++'s new is not counted.
#ifndef VOICE_FAKE_MEMORY_H
#define VOICE_FAKE_MEMORY_H

#include <string>

namespace fake {

// Starts counting from zero.
void memory_start();
// Lets the n-th allocation from now on fail, as if memory had run out; those after it work again.
void memory_fail(unsigned n = 1);
// How many blocks were allocated since.
unsigned memory_allocations();
// How many of them are alive.
unsigned memory_blocks();
// Stops counting and frees what is left. What is wrong, or an empty text when exactly `expected` blocks were left.
std::string memory_check(unsigned expected);

} // namespace fake

#endif

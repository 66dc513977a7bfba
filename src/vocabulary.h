// SPDX-License-Identifier: MIT
// The vocabulary of identifiers as a table: rows by number and by name.
//
// Rows count from 0 in the order of vocabulary/ids.csv. Everything here is read-only data and arithmetic: no pointer to
// relocate, no heap, nothing to do at start-up.
#ifndef VOICE_VOCABULARY_H
#define VOICE_VOCABULARY_H

#include <stdint.h>

namespace voice {

// The row of an identifier or of a name (compared exactly), -1 for none. Constant time.
int32_t vocabulary_row(uint32_t number);
int32_t vocabulary_row(const char *name);

// The fields of a row, 0 to LIBVOICE_IDS - 1.
uint32_t vocabulary_number(int32_t row);
const char *vocabulary_name(int32_t row);

} // namespace voice

#endif

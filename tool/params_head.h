// SPDX-License-Identifier: MIT
// The heads of records around a parameter buffer, word by word.
#ifndef VOICECTL_PARAMS_HEAD_H
#define VOICECTL_PARAMS_HEAD_H

#include <cstddef>
#include <span>

#include "record.h"

namespace voicectl {

enum class ParamsForm { buffer, signal, event, set };

struct HeadWord {
    const char *name;
    bool is_identifier = false;
};

// The words of the head in their order, but for the last one: the length, which follows from the items. A buffer has none.
std::span<const HeadWord> head_of(ParamsForm form);
// Of the whole head, length included; 0 for a buffer.
size_t head_bytes(ParamsForm form);

// What a record of that form is read as: a buffer as a set, once it has been given a head.
RecordKind kind_of(ParamsForm form);

} // namespace voicectl

#endif

// SPDX-License-Identifier: MIT
// What a row of a ladder says of its message.
#ifndef VOICECTL_LADDER_ROWS_H
#define VOICECTL_LADDER_ROWS_H

#include <string>

#include "ladder_model.h"
#include "step.h"

namespace voicectl {

// All but lanes and partner.
LadderRow ladder_row(const Step &step);

// A printable text that no run of combining characters and no length makes cover others: what is too much of them is
// written out, what is too long cut.
std::string text_tame(const std::string &printable_text);

} // namespace voicectl

#endif

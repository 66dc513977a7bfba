// SPDX-License-Identifier: MIT
// What must hold for each ladder and for what is drawn of it.
#ifndef FUZZ_PICTURES_H
#define FUZZ_PICTURES_H

#include "ladder_model.h"

namespace fuzz {

// Lanes that are there, rows in order, calls joined with their answers, texts that can be shown.
void ladder_check(const voicectl::LadderModel &ladder);
// Text, page, SVG and Mermaid: each of its own form, with nothing in it that a text of the ladder adds to that form.
void pictures_check(const voicectl::LadderModel &ladder);

} // namespace fuzz

#endif

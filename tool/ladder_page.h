// SPDX-License-Identifier: MIT
// A ladder as one HTML page that needs no network.
#ifndef VOICECTL_LADDER_PAGE_H
#define VOICECTL_LADDER_PAGE_H

#include <string>

#include "ladder_model.h"

namespace voicectl {

std::string ladder_page(const LadderModel &ladder);

// What the page's script draws, JSON: "title", "begin" (ms since 1970), "lost", "left_out", "lanes" ([name, kind, lane of the
// process or -1]), "texts", and "rows", each [us since the first row, kind, from, to, via, name, meaning, words, partner,
// parameters], where texts are numbers of "texts" and parameters three of them each: name, value, words. Nothing in it ends
// the script element around it.
std::string ladder_json(const LadderModel &ladder);

} // namespace voicectl

#endif

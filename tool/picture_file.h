// SPDX-License-Identifier: MIT
// A file that is written as a whole or not at all.
#ifndef VOICECTL_PICTURE_FILE_H
#define VOICECTL_PICTURE_FILE_H

#include <string>
#include <string_view>

namespace voicectl {

// Why a path cannot be the target, a sentence; empty: nothing speaks against it. A file that is there may be replaced only
// with `may_replace`.
std::string picture_target_problem(const std::string &path, bool may_replace);

// Writes it, for its owner alone. A sentence what went wrong, and a file that was there is as it was; empty: it is written.
std::string picture_write(const std::string &path, std::string_view text, bool may_replace);

} // namespace voicectl

#endif

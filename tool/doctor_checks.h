// SPDX-License-Identifier: MIT
// The table of checks: what is to be made of the facts, and how it is mended.
#ifndef VOICECTL_DOCTOR_CHECKS_H
#define VOICECTL_DOCTOR_CHECKS_H

#include <string>
#include <vector>

#include "doctor_facts.h"

namespace voicectl {

enum class Verdict { ok, unseen, warn, fail };

// What one check found. Texts are printable.
struct Finding {
    const char *check = "";
    Verdict verdict = Verdict::ok;
    std::string text{};
    std::string fix{}; // one line; empty: nothing is to be done
};

// Every check in the order in which they are shown, each once.
std::vector<Finding> facts_check(const Facts &facts);

} // namespace voicectl

#endif

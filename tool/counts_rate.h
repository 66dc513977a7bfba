// SPDX-License-Identifier: MIT
// How fast counts grow: the difference between two looks at them.
#ifndef VOICECTL_COUNTS_RATE_H
#define VOICECTL_COUNTS_RATE_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "counts.h"
#include "counts_text.h"

namespace voicectl {

class CountsRate {
public:
    // The counts now, with what has come since the last look: of the first one since `begin_ns`.
    explicit CountsRate(uint64_t begin_ns) : last_ns_(begin_ns) {}
    CountsView look(const Counts &counts, uint64_t now_ns, bool connected);

private:
    std::map<std::pair<std::string, std::string>, uint64_t> messages_;
    uint64_t sum_ = 0;
    uint64_t last_ns_;
};

} // namespace voicectl

#endif

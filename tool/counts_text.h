// SPDX-License-Identifier: MIT
// Counts as a table, as one line, as JSON.
#ifndef VOICECTL_COUNTS_TEXT_H
#define VOICECTL_COUNTS_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "counts.h"

namespace voicectl {

// What is shown of a row besides its counts.
struct RatedCount {
    Count count{};
    double rate = 0; // messages a second
};

// The counts at one time.
struct CountsView {
    uint64_t now_ns = 0;
    bool connected = false; // to the bus
    std::vector<RatedCount> rows{};
    RatedCount sum{};
    uint64_t lost = 0;
    size_t plugins = 0;
};

struct TableForm {
    size_t columns = 0; // 0: as wide as it gets
    size_t lines = 0;   // 0: all rows
    bool colour = false;
};

// A head and a row for each plugin and endpoint; what has no room gives way to what is busy or waits, and is counted.
std::string counts_table(const CountsView &view, const TableForm &form);
// One line without its end.
std::string counts_line(const CountsView &view);
// One object without a line break.
std::string counts_json(const CountsView &view);

} // namespace voicectl

#endif

// SPDX-License-Identifier: MIT
// Which lanes work on a call, and which are held up by one, at a row of a ladder.
#ifndef VOICECTL_LADDER_ACTIVITY_H
#define VOICECTL_LADDER_ACTIVITY_H

#include <cstddef>
#include <vector>

#include "ladder_model.h"

namespace voicectl {

constexpr uint64_t kBlockedNs = 1'000'000'000; // who waits longer is blocked

// Rows are gone through in their order: before() and after() each.
class LadderActivity {
public:
    explicit LadderActivity(const LadderModel &ladder);
    void before(size_t row);
    void after(size_t row);
    bool is_busy(size_t lane) const { return busy_[lane] > 0; }
    bool is_blocked(size_t lane) const { return blocked_[lane] > 0; }

    // Whether the call in this row held its caller up.
    bool blocks(size_t row) const;

private:
    bool is_call(size_t row) const;
    void count(size_t call, int by);
    size_t process_of(int lane) const;

    const LadderModel &ladder_;
    std::vector<int> busy_, blocked_; // by lane
};

} // namespace voicectl

#endif

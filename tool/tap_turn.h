// SPDX-License-Identifier: MIT
// A turn of a loop that takes records off a tap: it ends after some time, as a bus that never rests must not keep what else
// there is to do waiting.
#ifndef VOICECTL_TAP_TURN_H
#define VOICECTL_TAP_TURN_H

#include "kex_tap.h"
#include "run_limit.h"

namespace voicectl {

class TapTurn {
public:
    // As kex_tap_next(); 0 also when the turn has had its time.
    int next(kex_tap_t &tap, kex_tap_record_t &record) {
        const RunLimit::Clock::time_point now = RunLimit::Clock::now();
        if (!has_begun_)
            end_ = now + kMost;
        has_begun_ = true;
        is_over_ = now > end_;
        return is_over_ ? 0 : kex_tap_next(&tap, &record);
    }

    // Ends the turn. How long to wait for the next one: not at all when there may be more.
    RunLimit::Tick end(RunLimit::Tick tick) {
        has_begun_ = false;
        return is_over_ ? RunLimit::Tick{0} : tick;
    }

private:
    static constexpr RunLimit::Tick kMost{50};
    RunLimit::Clock::time_point end_{};
    bool has_begun_ = false;
    bool is_over_ = false;
};

} // namespace voicectl

#endif

// SPDX-License-Identifier: MIT
// The end of a loop that takes records off a tap: what passed before may not have been read yet.
#ifndef VOICECTL_TAP_DRAIN_H
#define VOICECTL_TAP_DRAIN_H

#include <chrono>
#include <cstdint>

#include "common.h"
#include "kex_tap.h"
#include "run_limit.h"

namespace voicectl {

constexpr std::chrono::seconds kMostDraining{1};

// Takes what passed before now, for a second at most, as long as `is_wanted`.
template <typename Wanted, typename Take>
void tap_drain(kex_tap_t &tap, Wanted is_wanted, Take take) {
    const uint64_t end_ns = now_ns();
    const auto enough = RunLimit::Clock::now() + kMostDraining;
    kex_tap_record_t record{};
    while (is_wanted() && RunLimit::Clock::now() < enough && kex_tap_next(&tap, &record) > 0 &&
           record.time_ns <= end_ns)
        take(record);
}

} // namespace voicectl

#endif

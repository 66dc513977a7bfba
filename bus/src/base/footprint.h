// SPDX-License-Identifier: MIT
// What an allocation takes of the process's memory. Limits on what is kept for a peer count this, not the bytes that it
// sent: many small messages take several times as much.
#ifndef KEX_FOOTPRINT_H
#define KEX_FOOTPRINT_H

#include <stddef.h>
#include <stdint.h>

namespace bus {

// The C library puts a head in front of each block and rounds up.
constexpr uint32_t footprint(size_t bytes) {
    constexpr size_t kHead = sizeof(size_t);
    constexpr size_t kWords = 2 * sizeof(size_t);
    constexpr size_t kUnit = alignof(max_align_t) > kWords ? alignof(max_align_t) : kWords;
    constexpr size_t kLeast = 2 * kWords;
    const size_t whole = (bytes + kHead + kUnit - 1) / kUnit * kUnit;
    return static_cast<uint32_t>(whole > kLeast ? whole : kLeast);
}

} // namespace bus

#endif

// SPDX-License-Identifier: MIT
// A filter of voicectl, of what an input says.
#ifndef FUZZ_FILTERS_H
#define FUZZ_FILTERS_H

#include "filter.h"
#include "input.h"

namespace fuzz {

inline voicectl::Filter filter(Input &in) {
    using Direction = voicectl::Filter::Direction;
    voicectl::Filter filter;
    const uint8_t which = in.byte();
    if (which & 1)
        filter.endpoints = {in.text()};
    if (which & 2)
        filter.plugins = {in.text()};
    if (which & 4)
        filter.functions = {in.text()};
    if (which & 8)
        filter.packages = {in.text()};
    filter.direction = which & 16 ? Direction::in : which & 32 ? Direction::out : Direction::both;
    return filter;
}

} // namespace fuzz

#endif

// SPDX-License-Identifier: MIT
// What the two programs of the event flood agree on: an event's first carried word is its place in the flood, from 1.
#ifndef FLOOD_H
#define FLOOD_H

#include <cstdint>

constexpr uint32_t kLastPlace = UINT32_MAX; // its second carried word is how many of the others the bus took

#endif

// SPDX-License-Identifier: MIT
// Implements handle.h.
#include "calls/handle.h"

namespace bus {

namespace {

constexpr uint32_t kPlaceBits = 12;
constexpr uint32_t kMaxPlaces = (1u << kPlaceBits) - 1; // of all buses of the process; a handle is never zero
constexpr uintptr_t kLastRound = UINTPTR_MAX >> kPlaceBits;
constexpr uint32_t kGrowth = 16;

// Stays until the process ends: handles of a bus that is gone stand for nothing for ever.
Handle *table;
uint32_t table_size;
uint32_t last_place; // the one given out last: all take their turn, so that none comes to its last round early

peer_t *handle_of(uint32_t place) {
    return reinterpret_cast<peer_t *>(table[place].round << kPlaceBits | (place + 1));
}

bool table_grow() {
    const uint32_t size = table_size + kGrowth < kMaxPlaces ? table_size + kGrowth : kMaxPlaces;
    Handle *larger = size > table_size ? static_cast<Handle *>(reallocarray(table, size, sizeof *table)) : nullptr;
    if (larger == nullptr)
        return false;
    table = larger;
    for (uint32_t place = table_size; place < size; place++)
        table[place] = {};
    last_place = table_size - 1; // the next one is the first of the new ones
    table_size = size;
    return true;
}

// A place that is free, and has a round left. False: there is none.
bool place_find(uint32_t *found) {
    for (uint32_t i = 1; i <= table_size; i++) {
        const uint32_t place = (last_place + i) % table_size;
        if (table[place].calls != nullptr || table[place].round == kLastRound)
            continue;
        *found = place;
        return true;
    }
    return false;
}

} // namespace

peer_t *handle_create(Calls *calls) {
    uint32_t place;
    if (!place_find(&place)) {
        if (!table_grow())
            return nullptr;
        place = last_place + 1;
    }
    last_place = place;
    table[place] = {calls, nullptr, nullptr, table[place].round + 1};
    return handle_of(place);
}

Handle *handle_find(const peer_t *handle) {
    const uintptr_t number = reinterpret_cast<uintptr_t>(handle);
    const uint32_t place = static_cast<uint32_t>(number & kMaxPlaces) - 1; // wraps for null
    if (place >= table_size || table[place].calls == nullptr || table[place].round != number >> kPlaceBits)
        return nullptr;
    return &table[place];
}

void handle_destroy(const peer_t *handle) {
    Handle *place = handle_find(handle);
    if (place != nullptr)
        *place = {nullptr, nullptr, nullptr, place->round};
}

peer_t *handle_first(const Calls *calls) {
    for (uint32_t place = 0; place < table_size; place++) {
        if (table[place].calls == calls)
            return handle_of(place);
    }
    return nullptr;
}

} // namespace bus

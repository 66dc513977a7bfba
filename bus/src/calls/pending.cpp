// SPDX-License-Identifier: MIT
// Implements pending.h.
#include "calls/pending.h"
#include "base/limits.h"
#include "calls/request.h"

namespace bus {

namespace {

constexpr uint32_t kFirstPlaces = 16;

request_t *&place_of(const Pending &pending, uint32_t serial) {
    return pending.places[serial & (pending.place_count - 1)];
}

// Requests that stand at different places stand at different ones among twice as many, too.
bool places_grow(Pending &pending) {
    const uint32_t count = pending.place_count > 0 ? 2 * pending.place_count : kFirstPlaces;
    request_t **places = static_cast<request_t **>(memory_take_zeroed(count, sizeof(request_t *)));
    if (places == nullptr)
        return false;
    free(pending.places);
    pending.places = places;
    pending.place_count = count;
    for (request_t *r : pending.requests)
        place_of(pending, r->serial) = r;
    return true;
}

} // namespace

const char *pending_reserve(Pending &pending, uint32_t &serial) {
    if (pending.requests.count >= kMaxPendingRequests)
        return "too many requests wait for its answers";
    if (2 * (pending.requests.count + 1) > pending.place_count && !places_grow(pending))
        return "out of memory";
    // At least half of the places are free: those of old requests that have to be passed over make less than one step
    // for each serial.
    do
        pending.last_serial++;
    while (pending.last_serial == 0 || place_of(pending, pending.last_serial) != nullptr);
    serial = pending.last_serial;
    return nullptr;
}

void pending_add(Pending &pending, request_t *r) {
    place_of(pending, r->serial) = r;
    pending.requests.push(r);
}

void pending_remove(Pending &pending, request_t *r) {
    place_of(pending, r->serial) = nullptr;
    pending.requests.remove(r);
}

request_t *pending_find(const Pending &pending, uint32_t serial) {
    request_t *r = pending.place_count > 0 ? place_of(pending, serial) : nullptr;
    return r != nullptr && r->serial == serial ? r : nullptr;
}

void pending_end(Pending &pending) {
    free(pending.places);
    pending = {};
}

} // namespace bus

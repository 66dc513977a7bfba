// SPDX-License-Identifier: MIT
// Implements admission.h.
#include "transport/admission.h"
#include "transport/connection.h"
#include "transport/succession.h"

#include <unistd.h>

namespace bus {

namespace {

bool is_foreign(uint32_t user_id) {
    return user_id != 0 && user_id != geteuid();
}

// One that has ended, too, as long as its calls wait to be run: whoever comes and goes does not leave ever more behind.
bool holds_a_place(const Connection *connection) {
    return connection->role != Role::client;
}

uint32_t places_of_process(const Transport *transport, int32_t process_id) {
    uint32_t count = 0;
    for (const Connection *connection : transport->connections)
        count += holds_a_place(connection) && connection->process_id == process_id;
    return count;
}

uint32_t places_of_user(const Transport *transport, uint32_t user_id) {
    uint32_t count = 0;
    for (const Connection *connection : transport->connections)
        count += holds_a_place(connection) && connection->user_id == user_id;
    return count;
}

const Reservation *reservation_find(const Transport *transport, uint32_t user_id) {
    for (const Reservation &one : transport->reservations) {
        if (one.places > 0 && one.user_id == user_id)
            return &one;
    }
    return nullptr;
}

// Reserved places that nobody has taken yet.
uint32_t places_kept(const Transport *transport) {
    uint32_t kept = 0;
    for (const Reservation &one : transport->reservations) {
        const uint32_t used = one.places > 0 ? places_of_user(transport, one.user_id) : 0;
        kept += used < one.places ? one.places - used : 0;
    }
    return kept;
}

// Of other users, those on reserved places left out.
uint32_t places_of_foreigners(const Transport *transport) {
    uint32_t count = 0;
    for (const Connection *connection : transport->connections)
        count += holds_a_place(connection) && is_foreign(connection->user_id);
    for (const Reservation &one : transport->reservations) {
        const uint32_t used = one.places > 0 && is_foreign(one.user_id) ? places_of_user(transport, one.user_id) : 0;
        count -= used < one.places ? used : one.places;
    }
    return count;
}

// All places but one: with the rest nobody can make turns long.
bool process_is_passing(Transport *transport, int32_t process_id) {
    return process_id != 0 && places_of_process(transport, process_id) >= kMaxPeersOfProcess &&
           leavings_of_process(transport, process_id).nothing >= kMaxPeersOfProcess - 1;
}

const char *process_refusal(Transport *transport, int32_t process_id) {
    const uint32_t places = places_of_process(transport, process_id);
    if (places >= kMaxPeersOfProcess)
        return "its process has 8 connections already";
    if (places >= kMaxLeavings && leavings_of_process(transport, process_id).much >= kMaxLeavings)
        return "its process has left calls of 2 connections to be run";
    return nullptr;
}

} // namespace

const char *admission_refusal(Transport *transport, int32_t process_id, uint32_t user_id) {
    if (transport->held_places >= kMaxPeers)
        return "there are too many connections";
    // A process in another namespace has no number here: all of these would count as one.
    const char *why = process_id != 0 ? process_refusal(transport, process_id) : nullptr;
    if (why != nullptr)
        return why;
    const Reservation *own = reservation_find(transport, user_id);
    if (own != nullptr && places_of_user(transport, user_id) < own->places)
        return nullptr;
    if (transport->held_places + places_kept(transport) >= kMaxPeers)
        return "there are too many connections: the other places are reserved";
    if (is_foreign(user_id) && places_of_foreigners(transport) >= kMaxForeignPeers)
        return "other users have 32 connections already";
    return nullptr;
}

void admission_note(Transport *transport, int32_t process_id) {
    if (process_is_passing(transport, process_id))
        transport->passing = process_id;
}

bool admission_has_to_wait(Transport *transport) {
    if (!process_is_passing(transport, transport->passing))
        transport->passing = 0;
    return transport->passing != 0;
}

bool places_reserve(Transport *transport, uint32_t user_id, uint32_t places) {
    uint32_t others = 0;
    Reservation *place = nullptr;
    for (Reservation &one : transport->reservations) {
        const bool is_own = one.places > 0 && one.user_id == user_id;
        if (is_own || (one.places == 0 && place == nullptr))
            place = &one;
        if (!is_own)
            others += one.places;
    }
    if (places == 0 && reservation_find(transport, user_id) == nullptr)
        return true;
    if (place == nullptr || places > kMaxPeers - others)
        return false;
    *place = {user_id, places};
    return true;
}

} // namespace bus
